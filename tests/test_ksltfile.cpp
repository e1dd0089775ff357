// Parameter files of linear transforms: round trips, files as other programs write them, hostile files, and disks that
// fill up.
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>

#include "fixture.hpp"
#include "tempfolder.hpp"

using namespace kit;

namespace {

using Bytes = std::string;
constexpr int kMost = std::numeric_limits<int>::max();
constexpr int kLeast = std::numeric_limits<int>::min();

template <class T>
void append(Bytes& bytes, T value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// The header of one matrix; Integer is a 32-bit integer in files of other programs and a long in Meschach's own.
template <class Integer>
struct Header {
    Integer type;
    Integer rows;
    Integer columns;
    Integer imaginary;
    Integer nameLength;

    Bytes bytes() const {
        Bytes made;
        for (const Integer field : {type, rows, columns, imaginary, nameLength}) append(made, field);
        return made;
    }
};
using Narrow = Header<std::int32_t>;
using Wide = Header<std::int64_t>;

/// A matrix as MATLAB level 4 has it: a header of 20 bytes, the name, and the values column by column.
template <class T>
Bytes matrixBytes(int type, const std::string& name, int rows, int columns, const std::vector<T>& byColumn) {
    Bytes made = Narrow{type, rows, columns, 0, static_cast<std::int32_t>(name.size() + 1)}.bytes();
    made.append(name.c_str(), name.size() + 1);
    for (const T value : byColumn) append(made, value);
    return made;
}

/// What Meschach writes: five longs, the name, and the doubles row by row; the hundreds of the type say so.
Bytes wideMatrixBytes(const std::string& name, int rows, int columns, const std::vector<double>& byRow,
                      std::int64_t type = 1100) {
    Bytes made = Wide{type, rows, columns, 0, static_cast<std::int64_t>(name.size() + 1)}.bytes();
    made.append(name.c_str(), name.size() + 1);
    for (const double value : byRow) append(made, value);
    return made;
}

Bytes goodTail(const std::vector<double>& c = {3, 1}) {
    return matrixBytes<double>(0, "TI", 1, 1, {0.5}) + matrixBytes<double>(0, "C", 1, static_cast<int>(c.size()), c) +
           matrixBytes<double>(0, "S", 1, 3, {0.25, -0.5, 4});
}

struct ParameterFileTest : LibraryTest {
    TempFolder folder;
    std::string path = folder.path("parameters.mat");
    MAT* forward = nullptr;
    MAT* inverse = nullptr;
    VEC* s = nullptr;
    IVEC* c = nullptr;

    void forget() {
        if (forward != nullptr) m_free(forward);
        if (inverse != nullptr) m_free(inverse);
        if (s != nullptr) v_free(s);
        if (c != nullptr) iv_free(c);
        forward = inverse = nullptr;
        s = nullptr;
        c = nullptr;
    }
    void TearDown() override {
        forget();
        LibraryTest::TearDown();
    }
    void store(const Bytes& bytes) const { std::ofstream(path, std::ios::binary) << bytes; }
    Bytes stored() const {
        std::ostringstream bytes;
        bytes << std::ifstream(path, std::ios::binary).rdbuf();
        return bytes.str();
    }
    int read() {
        forget();
        return KSReadLTP(path.c_str(), &forward, &inverse, &s, &c);
    }
    void expectRefused(const Reports& reports) {
        host().forget();
        EXPECT_EQ(read(), 1);
        EXPECT_EQ(host().reports, reports);
        EXPECT_TRUE(forward == nullptr && inverse == nullptr && s == nullptr && c == nullptr) << "handed out";
    }
    static std::vector<std::vector<double>> entries(const MAT* matrix) {
        std::vector<std::vector<double>> rows;
        for (u_int i = 0; i < matrix->m; ++i) rows.emplace_back(matrix->me[i], matrix->me[i] + matrix->n);
        return rows;
    }
    std::vector<double> sComponents() const { return {s->ve, s->ve + s->dim}; }
    std::vector<int> cComponents() const { return {c->ive, c->ive + c->dim}; }
};

// ---- writing ----

struct KSWriteLTPTest : ParameterFileTest {
    void SetUp() override {
        ParameterFileTest::SetUp();
        forward = m_get(2, 3);
        inverse = m_get(3, 2);
        for (u_int i = 0; i < 6; ++i) {
            forward->me[i / 3][i % 3] = 1.0 / (i + 1);
            inverse->me[i / 2][i % 2] = -1e300 * i;
        }
        s = v_get(3);
        s->ve[0] = 0.1;
        s->ve[1] = -0.0;
        s->ve[2] = INFINITY;
        c = iv_get(5);
        const std::vector<int> integers = {0, -1, kMost, kLeast, 16777217};
        std::copy(integers.begin(), integers.end(), c->ive);
    }
    int write(const std::string& to) { return KSWriteLTP(to.c_str(), forward, inverse, s, c); }
    void expectRefused(const Report& report) {
        host().forget();
        EXPECT_EQ(write(path), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
    }
};

TEST_F(KSWriteLTPTest, WhatIsWrittenIsReadBackExactly) {
    ASSERT_EQ(write(path), 0);
    MAT* readForward = nullptr;
    MAT* readInverse = nullptr;
    VEC* readS = nullptr;
    IVEC* readC = nullptr;
    ASSERT_EQ(KSReadLTP(path.c_str(), &readForward, &readInverse, &readS, &readC), 0);
    EXPECT_EQ(entries(readForward), entries(forward));
    EXPECT_EQ(entries(readInverse), entries(inverse));
    EXPECT_EQ(std::vector<double>(readS->ve, readS->ve + readS->dim), sComponents());
    EXPECT_TRUE(std::signbit(readS->ve[1]));
    EXPECT_EQ(std::vector<int>(readC->ive, readC->ive + readC->dim), cComponents());
    m_free(readForward);
    m_free(readInverse);
    v_free(readS);
    iv_free(readC);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSWriteLTPTest, TheFileHoldsFourMatricesInOrder) {
    ASSERT_EQ(write(path), 0);
    const std::vector<double> f(forward->base, forward->base + 6);
    const std::vector<double> i(inverse->base, inverse->base + 6);
    const std::vector<double> integers(c->ive, c->ive + 5);
    EXPECT_TRUE(stored() == wideMatrixBytes("TF", 2, 3, f) + wideMatrixBytes("TI", 3, 2, i) +
                                wideMatrixBytes("C", 1, 5, integers) + wideMatrixBytes("S", 1, 3, sComponents()));
}

TEST_F(KSWriteLTPTest, AnOlderFileIsReplaced) {
    store(Bytes(100000, 'x'));
    ASSERT_EQ(write(path), 0);
    EXPECT_LT(stored().size(), 1000U);
}

TEST_F(KSWriteLTPTest, ChecksInOrderBeforeTheFileIsOpened) {
    EXPECT_EQ(KSWriteLTP(nullptr, nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(KSWriteLTP(path.c_str(), nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(KSWriteLTP(path.c_str(), forward, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(KSWriteLTP(path.c_str(), forward, inverse, nullptr, nullptr), 1);
    EXPECT_EQ(KSWriteLTP(path.c_str(), forward, inverse, s, nullptr), 1);
    EXPECT_EQ(host().reports,
              (Reports{failure("%s: *szFileName == NULL.\n", "KSWriteLTP()"),
                       failure("%s: *pTF == NULL.\n", "KSWriteLTP()"), failure("%s: *pTI == NULL.\n", "KSWriteLTP()"),
                       failure("%s: *ps == NULL.\n", "KSWriteLTP()"), failure("%s: *pc == NULL.\n", "KSWriteLTP()")}));
    EXPECT_EQ(folder.names(), Names{});
}

TEST_F(KSWriteLTPTest, AFileThatCannotBeOpenedIsNamed) {
    path = folder.path("nowhere/parameters.mat");
    refuseMatrixCall(MatrixCall::kMGet, 1);
    expectRefused(failure("%s: failed to open %s for writing\n", "KSWriteLTP()", path.c_str()));
    EXPECT_EQ(matrixCalls(MatrixCall::kMGet), 0);
}

TEST_F(KSWriteLTPTest, NamesTheStepThatFailedAndStopsThere) {
    refuseMatrixCall(MatrixCall::kMGet, 1);
    expectRefused(failure("%s: pS = m_get (1, ps->dim) failed\n", "KSWriteLTP()"));
    refuseMatrixCall(MatrixCall::kMGet, 2);
    expectRefused(failure("%s: pC = m_get (1, pc->dim) failed\n", "KSWriteLTP()"));
    EXPECT_EQ(stored(), "");
    const Reports promised = {failure("%s: m_save (fp, pTF, \"TF\") failed\n", "KSWriteLTP()"),
                              failure("%s: m_save (fp, pTI, \"TI\") failed\n", "KSWriteLTP()"),
                              failure("%s: m_save (fp, pC, \"C\") failed\n", "KSWriteLTP()"),
                              failure("%s:  m_save (fp, pS, \"S\") failed\n", "KSWriteLTP()")};
    refuseNoMatrixCall();
    std::size_t size = 0;
    for (int n = 1; n <= 4; ++n) {
        refuseMatrixCall(MatrixCall::kMSave, n);
        expectRefused(promised[static_cast<std::size_t>(n - 1)]);
        EXPECT_EQ(matrixCalls(MatrixCall::kMSave), n);
        EXPECT_EQ(stored().size(), size);
        size += n <= 2 ? 40U + 3U + 48U : 40U + 2U + 40U;
    }
    refuseMatrixCall(MatrixCall::kMSave, 5);
    EXPECT_EQ(write(path), 0);
}

TEST_F(KSWriteLTPTest, ADeviceThatTakesNothingFailsAtTheFirstMatrix) {
    path = "/dev/full";
    expectRefused(failure("%s: m_save (fp, pTF, \"TF\") failed\n", "KSWriteLTP()"));
}

TEST_F(KSWriteLTPTest, ADiskThatFillsUpFailsAtTheMatrixThatDoesNotFit) {
    ASSERT_EQ(write(path), 0);
    const std::size_t whole = stored().size();
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    const std::size_t ends[] = {91, 182, 264, whole};
    ASSERT_EQ(whole, 264U + 40U + 2U + 24U);
    for (std::size_t limit = 0; limit < whole; ++limit) {
        rlimit small = before;
        small.rlim_cur = limit;
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
        host().forget();
        const int result = write(path);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
        const Report promised = limit < ends[0]   ? failure("%s: m_save (fp, pTF, \"TF\") failed\n", "KSWriteLTP()")
                                : limit < ends[1] ? failure("%s: m_save (fp, pTI, \"TI\") failed\n", "KSWriteLTP()")
                                : limit < ends[2] ? failure("%s: m_save (fp, pC, \"C\") failed\n", "KSWriteLTP()")
                                                  : failure("%s:  m_save (fp, pS, \"S\") failed\n", "KSWriteLTP()");
        EXPECT_EQ(result, 1) << limit;
        EXPECT_EQ(host().reports, (Reports{promised})) << limit;
    }
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_EQ(write(path), 0);
}

// ---- reading ----

using KSReadLTPTest = ParameterFileTest;

TEST_F(KSReadLTPTest, TakesStandardFilesInColumnOrder) {
    store(matrixBytes<double>(0, "TF", 2, 3, {11, 21, 12, 22, 13, 23}) + matrixBytes<double>(0, "TI", 3, 1, {1, 2, 3}) +
          matrixBytes<double>(0, "C", 1, 3, {7, -8, 9}) + matrixBytes<double>(0, "S", 1, 2, {0.25, -0.5}));
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(entries(forward), (std::vector<std::vector<double>>{{11, 12, 13}, {21, 22, 23}}));
    EXPECT_EQ(entries(inverse), (std::vector<std::vector<double>>{{1}, {2}, {3}}));
    EXPECT_EQ(cComponents(), (std::vector<int>{7, -8, 9}));
    EXPECT_EQ(sComponents(), (std::vector<double>{0.25, -0.5}));
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSReadLTPTest, TakesEveryPrecisionOfStandardFiles) {
    store(matrixBytes<float>(10, "TF", 2, 2, {0.5F, 1.5F, -2.5F, 1e30F}) +
          matrixBytes<std::int16_t>(30, "TI", 1, 2, {-32768, 32767}) +
          matrixBytes<std::int32_t>(20, "C", 1, 3, {kLeast, kMost, 16777217}) +
          matrixBytes<std::uint16_t>(40, "S", 1, 2, {65535, 1}));
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(entries(forward), (std::vector<std::vector<double>>{{0.5, -2.5}, {1.5, static_cast<double>(1e30F)}}));
    EXPECT_EQ(entries(inverse), (std::vector<std::vector<double>>{{-32768, 32767}}));
    EXPECT_EQ(cComponents(), (std::vector<int>{kLeast, kMost, 16777217}));
    EXPECT_EQ(sComponents(), (std::vector<double>{65535, 1}));
    store(matrixBytes<std::uint8_t>(50, "TF", 1, 3, {0, 128, 255}) + goodTail());
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(entries(forward), (std::vector<std::vector<double>>{{0, 128, 255}}));
}

TEST_F(KSReadLTPTest, TakesMeschachsFilesInBothOrdersAndPrecisions) {
    Bytes single = Wide{1110, 2, 2, 0, 3}.bytes() + Bytes("TF\0", 3);
    for (const float value : {11.0F, 12.0F, 21.0F, 22.0F}) append(single, value);
    Bytes singleByColumn = Wide{1010, 2, 2, 0, 3}.bytes() + Bytes("TF\0", 3);
    for (const float value : {11.0F, 21.0F, 12.0F, 22.0F}) append(singleByColumn, value);
    for (const Bytes& first : {single, singleByColumn, wideMatrixBytes("TF", 2, 2, {11, 12, 21, 22}),
                               wideMatrixBytes("TF", 2, 2, {11, 21, 12, 22}, 1000)}) {
        store(first + goodTail());
        EXPECT_EQ(read(), 0);
        if (forward != nullptr) {
            EXPECT_EQ(entries(forward), (std::vector<std::vector<double>>{{11, 12}, {21, 22}}));
        }
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(KSReadLTPTest, MatricesBeyondTheFirstRowGiveThatRowOnly) {
    store(matrixBytes<double>(0, "TF", 1, 1, {1}) + matrixBytes<double>(0, "TI", 1, 1, {1}) +
          matrixBytes<double>(0, "C", 2, 2, {1, -99, 2, -99}) + matrixBytes<double>(0, "S", 2, 1, {5, -99}));
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(cComponents(), (std::vector<int>{1, 2}));
    EXPECT_EQ(sComponents(), (std::vector<double>{5}));
}

TEST_F(KSReadLTPTest, IntegersAreTruncatedTowardZero) {
    const Bytes first = matrixBytes<double>(0, "TF", 1, 1, {1});
    store(first + goodTail({1.9, -1.9, 0.99, -0.99, kMost + 0.5, kLeast - 0.5}));
    ASSERT_EQ(read(), 0);
    EXPECT_EQ(cComponents(), (std::vector<int>{1, -1, 0, 0, kMost, kLeast}));
}

TEST_F(KSReadLTPTest, ValuesThatAreNoIntegersAreRefused) {
    const Bytes first = matrixBytes<double>(0, "TF", 1, 1, {NAN});
    for (const double value : {static_cast<double>(NAN), static_cast<double>(INFINITY), static_cast<double>(-INFINITY),
                               2147483648.0, -2147483649.0, 1e300}) {
        store(first + goodTail({1, value}));
        expectRefused({failure("%s: pC->me[0][%u] (= %g) is outside of valid range\n", "KSReadLTP()", 1U, value)});
    }
    store(first + goodTail({1}));
    ASSERT_EQ(read(), 0) << "elsewhere not-a-number is a value";
    EXPECT_TRUE(std::isnan(forward->me[0][0]));
}

TEST_F(KSReadLTPTest, NoName) {
    EXPECT_EQ(KSReadLTP(nullptr, &forward, &inverse, &s, &c), 1);
    EXPECT_EQ(host().reports, (Reports{failure("%s: *szFileName == NULL.\n", "KSReadLTP()")}));
}

TEST_F(KSReadLTPTest, AFileThatCannotBeOpenedStandsWhereTheFunctionWould) {
    EXPECT_EQ(read(), 1);
    ASSERT_EQ(host().reports.size(), 1U);
    const Report& report = host().reports[0];
    EXPECT_FALSE(report.debug);
    EXPECT_EQ(report.code, 83);
    EXPECT_EQ(report.severity, 0);
    EXPECT_EQ(report.format, "%s: failed to open %s for reading\n");
    EXPECT_EQ(report.label, path);
}

TEST_F(KSReadLTPTest, AWrongNameIsReportedWithTheExpectedOne) {
    const auto one = [](const char* name) { return matrixBytes<double>(0, name, 1, 1, {1}); };
    store(one("TI") + goodTail());
    expectRefused({failure("%s: expected %s, got %s\n", "KSReadLTP()", "TF", "TI")});
    store(one("TF") + one("T"));
    expectRefused({failure("%s: expected %s, got %s\n", "KSReadLTP()", "TI", "T")});
    store(one("TF") + one("TI") + one("c"));
    expectRefused({failure("%s: expected %s, got %s\n", "KSReadLTP()", "C", "c")});
    store(one("TF") + one("TI") + one("C") + one("S2"));
    expectRefused({debugOutput("%s: expected %s, got %s\n", "KSReadLTP()", "S", "S2")});
    store(wideMatrixBytes("TI", 1, 1, {1}));
    expectRefused({failure("%s: expected %s, got %s\n", "KSReadLTP()", "TF", "TI")});
}

TEST_F(KSReadLTPTest, AFileThatEndsAnywhereIsRefused) {
    struct Part {
        Bytes bytes;
        Report report;
    };
    const auto check = [this](const std::vector<Part>& parts) {
        Bytes before;
        for (const Part& part : parts) {
            for (std::size_t length = 0; length < part.bytes.size(); ++length) {
                store(before + part.bytes.substr(0, length));
                expectRefused({part.report});
            }
            before += part.bytes;
        }
        store(before);
        EXPECT_EQ(read(), 0);
        store(before + "more");
        EXPECT_EQ(read(), 0) << "what follows the four is not looked at";
    };
    const Report f = failure("%s: pTF = m_load (fp, &name) failed\n", "KSReadLTP()");
    const Report i = failure("%s: pTI = m_load (fp, &name) failed\n", "KSReadLTP()");
    const Report b = failure("%s: pB = m_load (fp, &name) failed\n", "KSReadLTP()");
    const Report last = failure("%s: pS = m_load (fp, &name) failed\n", "KSReadLTP()");
    check({{matrixBytes<double>(0, "TF", 2, 1, {1, 2}), f},
           {matrixBytes<float>(10, "TI", 1, 2, {1, 2}), i},
           {matrixBytes<std::uint8_t>(50, "C", 1, 3, {1, 2, 3}), b},
           {matrixBytes<std::int16_t>(30, "S", 1, 1, {1}), last}});
    check({{wideMatrixBytes("TF", 2, 1, {1, 2}), f},
           {wideMatrixBytes("TI", 1, 2, {1, 2}), i},
           {wideMatrixBytes("C", 1, 1, {1}), b},
           {wideMatrixBytes("S", 1, 1, {1}), last}});
}

TEST_F(KSReadLTPTest, HostileHeadersAreRefused) {
    const Bytes filler(4096, '\0');
    const auto expectBad = [&](const Bytes& header) {
        store(header + filler);
        expectRefused({failure("%s: pTF = m_load (fp, &name) failed\n", "KSReadLTP()")});
    };
    for (const std::int64_t length :
         {std::int64_t{-1}, std::int64_t{0}, std::int64_t{1}, std::int64_t{65}, std::int64_t{0xffffffff},
          std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()}) {
        expectBad(Wide{1100, 2, 2, 0, length}.bytes() + "TF");
        expectBad(Narrow{0, 2, 2, 0, static_cast<std::int32_t>(length)}.bytes() + "TF");
    }
    for (const std::int64_t size :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{65537}, std::int64_t{0xffffffff}, std::int64_t{1} << 32,
          (std::int64_t{1} << 32) + 1, std::int64_t{1} << 61, std::numeric_limits<std::int64_t>::max()}) {
        for (const bool both : {false, true}) {
            const std::int64_t other = both ? size : 1;
            // A thousand and a half doubles would fit: only the product and the file's length tell.
            expectBad(Wide{1000, size, other, 0, 3}.bytes() + Bytes("TF\0", 3));
            expectBad(Wide{1000, other, size, 0, 3}.bytes() + Bytes("TF\0", 3));
            const auto narrow = static_cast<std::int32_t>(size);
            if (narrow == 1) continue;
            expectBad(Narrow{0, narrow, both ? narrow : 1, 0, 3}.bytes() + Bytes("TF\0", 3));
            expectBad(Narrow{0, both ? narrow : 1, narrow, 0, 3}.bytes() + Bytes("TF\0", 3));
        }
    }
    for (const std::int64_t type : {1, 2, 60, 100, 1001, 1002, 1020, 1050, 1200, 2000, 3000, 4000, 5000, -1, -10}) {
        expectBad(Wide{type, 2, 2, 0, 3}.bytes() + Bytes("TF\0", 3));
        expectBad(Narrow{static_cast<std::int32_t>(type), 2, 2, 0, 3}.bytes() + Bytes("TF\0", 3));
    }
    for (const std::int64_t complex : {1, 2, -1}) {
        expectBad(Wide{1000, 2, 2, complex, 3}.bytes() + Bytes("TF\0", 3));
        expectBad(Narrow{0, 2, 2, static_cast<std::int32_t>(complex), 3}.bytes() + Bytes("TF\0", 3));
    }
    // No terminator within the name.
    expectBad(Wide{1000, 2, 2, 0, 2}.bytes() + "TF");
    expectBad(Narrow{0, 2, 2, 0, 2}.bytes() + "TF");
    expectBad(Wide{1000, 2, 2, 0, 64}.bytes() + Bytes(64, 'T'));
    expectBad(Narrow{0, 2, 2, 0, 64}.bytes() + Bytes(64, 'T'));
}

TEST_F(KSReadLTPTest, TheLongestNameIsTakenAndReported) {
    const std::string name(63, 'n');
    for (const Bytes& first : {matrixBytes<double>(0, name, 1, 1, {1}), wideMatrixBytes(name, 1, 1, {1})}) {
        store(first);
        expectRefused({failure("%s: expected %s, got %s\n", "KSReadLTP()", "TF", name.c_str())});
    }
    // What follows a terminator inside the name is no part of it.
    store(Narrow{0, 1, 1, 0, 6}.bytes() + Bytes("TF\0xyz", 6) + Bytes(8, '\0') + goodTail());
    EXPECT_EQ(read(), 0);
}

TEST_F(KSReadLTPTest, WhatIsNoFileOfBytesIsRefused) {
    store("");
    expectRefused({failure("%s: pTF = m_load (fp, &name) failed\n", "KSReadLTP()")});
    path = folder.path("");
    expectRefused({failure("%s: pTF = m_load (fp, &name) failed\n", "KSReadLTP()")});
    path = "/dev/zero";
    expectRefused({failure("%s: pTF = m_load (fp, &name) failed\n", "KSReadLTP()")});
}

TEST_F(KSReadLTPTest, NamesTheStepThatFailed) {
    const auto load = [](int n) { refuseMatrixCall(MatrixCall::kMLoad, n); };
    store(wideMatrixBytes("TF", 1, 1, {1}) + wideMatrixBytes("TI", 1, 1, {1}) + wideMatrixBytes("C", 1, 2, {1, 2}) +
          wideMatrixBytes("S", 1, 2, {1, 2}));
    load(1);
    expectRefused({failure("%s: pTF = m_load (fp, &name) failed\n", "KSReadLTP()")});
    load(2);
    expectRefused({failure("%s: pTI = m_load (fp, &name) failed\n", "KSReadLTP()")});
    load(3);
    expectRefused({failure("%s: pB = m_load (fp, &name) failed\n", "KSReadLTP()")});
    load(4);
    expectRefused({failure("%s: pS = m_load (fp, &name) failed\n", "KSReadLTP()")});
    load(0);
    refuseVector(1);
    expectRefused({failure("%s: ps = v_get (pS->n) failed\n", "KSReadLTP()")});
    refuseVector(2);
    refuseMatrixCall(MatrixCall::kIvGet, 1);
    expectRefused({failure("%s: pc = iv_get (pC->n) failed\n", "KSReadLTP()")});
    refuseMatrixCall(MatrixCall::kIvGet, 2);
    refuseVector(2);
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(matrixCalls(MatrixCall::kIvGet) + vectors(), 2);
}

TEST_F(KSReadLTPTest, MatricesThatFindNoMemoryAreFailedLoads) {
    const Reports promised = {failure("%s: pTF = m_load (fp, &name) failed\n", "KSReadLTP()"),
                              failure("%s: pTI = m_load (fp, &name) failed\n", "KSReadLTP()"),
                              failure("%s: pB = m_load (fp, &name) failed\n", "KSReadLTP()"),
                              failure("%s: pS = m_load (fp, &name) failed\n", "KSReadLTP()")};
    store(matrixBytes<double>(0, "TF", 1, 1, {1}) + goodTail());
    for (int n = 1; n <= 4; ++n) {
        refuseMatrixCall(MatrixCall::kMGet, n);
        expectRefused({promised[static_cast<std::size_t>(n - 1)]});
        EXPECT_EQ(matrixCalls(MatrixCall::kMGet), n);
    }
    refuseMatrixCall(MatrixCall::kMGet, 0);
    const Bytes wide = wideMatrixBytes("TF", 1, 1, {1}) + wideMatrixBytes("TI", 1, 1, {1}) +
                       wideMatrixBytes("C", 1, 1, {1}) + wideMatrixBytes("S", 1, 1, {1});
    for (const Bytes& file : {stored(), wide}) {
        store(file);
        for (int n = 1; n <= 4; ++n) {
            refuseAllocation(n);
            expectRefused({promised[static_cast<std::size_t>(n - 1)]});
        }
        refuseAllocation(5);
        EXPECT_EQ(read(), 0);
        EXPECT_FALSE(allocationRefused());
    }
}

TEST_F(KSReadLTPTest, HostileFilesNeverUseUpMeschachsPatience) {
    store(Wide{1000, 2, 2, 0, -1}.bytes());
    for (int i = 0; i < 150; ++i) expectRefused({failure("%s: pTF = m_load (fp, &name) failed\n", "KSReadLTP()")});
    refuseMatrixCall(MatrixCall::kMLoad, 1);
    store(wideMatrixBytes("TF", 1, 1, {1}));
    for (int i = 0; i < 150; ++i) {
        refuseMatrixCall(MatrixCall::kMLoad, 1);
        expectRefused({failure("%s: pTF = m_load (fp, &name) failed\n", "KSReadLTP()")});
    }
}

}  // namespace
