// The library on the embedded host: what is created, written and closed is there when it is opened again, real cubes
// give their known statistics, and a process killed while it closes leaves the old metadata or the new.
#include <gtest/gtest.h>
#include <kshost_app.h>
#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include "datasets.hpp"
#include "embedded.hpp"
#include "windows.hpp"

using namespace kit;

namespace {

using EndToEnd = EmbeddedTest;

// ---- creating and reopening ----

struct Roundtrip : EndToEnd, testing::WithParamInterface<std::tuple<const char*, int>> {
    static constexpr int kBands = 5;
    static constexpr int kWidth = 19;
    static constexpr int kHeight = 13;

    std::string name = folder.path(std::get<0>(GetParam()));
    int type = std::get<1>(GetParam());

    KSDataSet* description() const {
        KSDataSet* dataSet = heapDataSet(kBands);
        dataSet->szFileName = heapText(name);
        dataSet->nXSize = kWidth;
        dataSet->nYSize = kHeight;
        dataSet->Sensor.eType = KS_SENSOR_PUSHBROOM;
        dataSet->Sensor.fFOVLeft = 12.5F;
        dataSet->Sensor.fFOVAft = 0.5F;
        dataSet->Mission = {2021, 6, 30, 10, 45, -1, 52.390569, 13.064473, 653000.0F, 190.5F, -3.25F};
        for (int b = 0; b < kBands; ++b) {
            dataSet->pBandRefs[b].nChanType = type;
            dataSet->pBandRefs[b].nID = 100 + b;
            dataSet->Sensor.pBandResp[b].eRespType = KS_RT_GAUSSIAN + b % 3;
            dataSet->Sensor.pBandResp[b].fCentre = 900.0F - 100.0F * static_cast<float>(b) + 0.125F;
        }
        return dataSet;
    }
    /// A value that every channel type can hold.
    static float value(int x, int y, int b) { return static_cast<float>((x * 7 + y * 3 + b * 11) % 200); }
};
INSTANTIATE_TEST_SUITE_P(Formats, Roundtrip,
                         testing::Combine(testing::Values("new.img", "new.tif"), testing::Values(1, 2, 3, 4)),
                         [](const auto& test) {
                             return std::string(std::get<0>(test.param)).substr(4) +
                                    std::to_string(std::get<1>(test.param));
                         });

TEST_P(Roundtrip, WhatIsCreatedAndWrittenIsReadBack) {
    KSDataSet* dataSet = description();
    appendTransform(*dataSet,
                    heapTransform(KS_RQ_APPRAD, {0.5F, 0.25F, 2.0F, 1.0F, 4.0F}, {1.0F, -1.0F, 0.0F, 0.5F, 10.0F}));
    ASSERT_EQ(KSCreate(dataSet), 0);
    KSWinEx window = allocatedWindow(KS_INTLV_LINE, kWidth, kHeight, {0, 1, 2, 3, 4});
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            for (int b = 0; b < kBands; ++b) component(window, x, y, b) = value(x, y, b);
        }
    }
    ASSERT_EQ(KSWriteWinEx(dataSet, &window), 0);
    KSFreeWinEx(&window);
    ASSERT_EQ(KSClose(dataSet), 0);

    dataSet = KSOpen(name.c_str(), "r");
    ASSERT_NE(dataSet, nullptr);
    EXPECT_EQ(dataSet->nXSize, kWidth);
    EXPECT_EQ(dataSet->nYSize, kHeight);
    EXPECT_EQ(dataSet->Sensor.eType, KS_SENSOR_PUSHBROOM);
    EXPECT_EQ(dataSet->Sensor.fFOVLeft, 12.5F);
    EXPECT_EQ(dataSet->Sensor.fFOVRight, -1.0F);
    EXPECT_EQ(dataSet->Sensor.fFOVAft, 0.5F);
    const KSMission& m = dataSet->Mission;
    EXPECT_EQ((std::vector<int>{m.nYear, m.nMonth, m.nDay, m.nHour, m.nMinute}),
              (std::vector<int>{2021, 6, 30, 10, 45}));
    EXPECT_EQ(m.dLatitude, 52.390569);
    EXPECT_EQ(m.dLongitude, 13.064473);
    EXPECT_EQ(m.fHeight, 653000.0F);
    EXPECT_EQ(m.fHeading, 190.5F);
    EXPECT_EQ(m.fForeAftTilt, -3.25F);
    ASSERT_EQ(dataSet->Sensor.nNumBands, kBands);
    ASSERT_EQ(dataSet->nNumRadTrans, 1);
    EXPECT_EQ(dataSet->papRadTransSeq[0]->eRadQuant, KS_RQ_APPRAD);
    for (int b = 0; b < kBands; ++b) {
        EXPECT_EQ(dataSet->pBandRefs[b].nID, 100 + b);
        EXPECT_EQ(dataSet->pBandRefs[b].nChan, b + 1);
        EXPECT_EQ(dataSet->pBandRefs[b].nChanType, type);
        EXPECT_EQ(dataSet->Sensor.pBandResp[b].eRespType, KS_RT_GAUSSIAN + b % 3);
        EXPECT_EQ(dataSet->Sensor.pBandResp[b].fCentre, 900.125F - 100.0F * static_cast<float>(b));
        EXPECT_EQ(dataSet->Sensor.pBandResp[b].fFWHM, 10.0F);
    }

    for (const int interleave : kInterleaves) {
        for (const int level : {0, 1}) {
            window = windowOf(interleave, 16, 11, kBands);
            window.nXOff = 2;
            window.nYOff = 1;
            window.SampDesc.nXSampleInt = 3;
            window.SampDesc.nYSampleInt = 2;
            window.nRadTransLev = level;
            ASSERT_EQ(KSAllocWinEx(&window), 0);
            for (int b = 0; b < kBands; ++b) window.SampDesc.panBandMap[b] = kBands - 1 - b;
            ASSERT_EQ(KSReadWinEx(dataSet, &window), 0);
            for (int y = 0; y < window.nNumYSamples; ++y) {
                for (int x = 0; x < window.nNumXSamples; ++x) {
                    for (int j = 0; j < kBands; ++j) {
                        const int b = kBands - 1 - j;
                        // The host spreads the samples over the width that the window has, the odd pixels included.
                        const int column = 2 + x * 16 / window.nNumXSamples;
                        const int line = 1 + y * 11 / window.nNumYSamples;
                        const float gain = level == 0 ? 1.0F : dataSet->papRadTransSeq[0]->pafGains[b];
                        const float offset = level == 0 ? 0.0F : dataSet->papRadTransSeq[0]->pafOffsets[b];
                        EXPECT_EQ(component(window, x, y, j), gain * value(column, line, b) + offset);
                    }
                }
            }
            KSFreeWinEx(&window);
        }
    }
    while (dataSet->nNumRadTrans > 0) KSDelRadTrans(dataSet);
    EXPECT_EQ(KSClose(dataSet), 0);
    EXPECT_EQ(reports, std::vector<std::string>{});
}

TEST_P(Roundtrip, ReadingLeavesNothingBehind) {
    KSDataSet* dataSet = description();
    ASSERT_EQ(KSCreate(dataSet), 0);
    ASSERT_EQ(KSClose(dataSet), 0);
    const std::vector<std::string> before = folder.names();
    const auto written = std::filesystem::last_write_time(name);
    dataSet = KSOpen(name.c_str(), "r");
    ASSERT_NE(dataSet, nullptr);
    EXPECT_EQ(KSClose(dataSet), 0);
    EXPECT_EQ(folder.names(), before);
    EXPECT_EQ(std::filesystem::last_write_time(name), written);
}

TEST_P(Roundtrip, AnExistingFileIsNotCreatedAgain) {
    KSDataSet* dataSet = description();
    ASSERT_EQ(KSCreate(dataSet), 0);
    ASSERT_EQ(KSClose(dataSet), 0);
    dataSet = description();
    EXPECT_EQ(KSCreate(dataSet), 1);
    EXPECT_EQ(reports,
              (std::vector<std::string>{"83/0 KSCreate: pDataSet->szFileName ('" + name + "') already exists.\n"}));
    KSFree(dataSet);
}

TEST_P(Roundtrip, ADuplicatedSelectionIsADataSetOfItsOwn) {
    KSDataSet* source = description();
    ASSERT_EQ(KSCreate(source), 0);
    const float interval[2] = {550.0F, 850.0F};
    int count = 0;
    int* map = nullptr;
    ASSERT_EQ(KSSelectBands(source, interval, 0, 0, nullptr, &count, &map), 0);
    ASSERT_EQ(std::vector<int>(map, map + count), (std::vector<int>{3, 2, 1}));
    KSDataSet* derived = KSDupl(source, count, map);
    std::free(map);
    ASSERT_NE(derived, nullptr);
    EXPECT_EQ(KSClose(source), 0);
    const std::string derivedName = folder.path("derived.img");
    derived->szFileName = heapText(derivedName);
    for (int i = 0; i < count; ++i) derived->pBandRefs[i].nChan = i + 1;
    ASSERT_EQ(KSCreate(derived), 0);
    ASSERT_EQ(KSClose(derived), 0);
    derived = KSOpen(derivedName.c_str(), "r");
    ASSERT_NE(derived, nullptr);
    ASSERT_EQ(derived->Sensor.nNumBands, 3);
    EXPECT_EQ(derived->Sensor.pBandResp[0].fCentre, 600.125F);
    EXPECT_EQ(derived->pBandRefs[0].nID, 103);
    EXPECT_EQ(derived->Mission.fHeading, 0.0F);
    EXPECT_EQ(KSClose(derived), 0);
}

// ---- real cubes ----

struct BandStatistics {
    double wavelength, min, max, mean;
};

std::vector<BandStatistics> readStatistics(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    std::vector<BandStatistics> bands;
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::vector<std::string> texts;
        for (std::string text; std::getline(fields, text, ',');) texts.push_back(text);
        bands.push_back(
            {std::stod(texts.at(1)), std::stod(texts.at(2)), std::stod(texts.at(3)), std::stod(texts.at(4))});
    }
    return bands;
}

BandStatistics statisticsOf(const KSDataSet& dataSet, int band, KSWinEx& window) {
    window.SampDesc.panBandMap[0] = band;
    EXPECT_EQ(KSReadWinEx(&dataSet, &window), 0);
    const float* samples = window.pafSamples;
    const auto count = static_cast<std::ptrdiff_t>(window.nNumXSamples) * window.nNumYSamples;
    double sum = 0.0;
    for (std::ptrdiff_t i = 0; i < count; ++i) sum += static_cast<double>(samples[i]);
    return {static_cast<double>(dataSet.Sensor.pBandResp[band].fCentre),
            static_cast<double>(*std::min_element(samples, samples + count)),
            static_cast<double>(*std::max_element(samples, samples + count)), sum / static_cast<double>(count)};
}

void expectStatistics(const std::string& cube, const std::vector<BandStatistics>& expected) {
    SCOPED_TRACE(cube);
    KSDataSet* dataSet = KSOpen(cube.c_str(), "r");
    ASSERT_NE(dataSet, nullptr);
    ASSERT_EQ(dataSet->Sensor.nNumBands, static_cast<int>(expected.size()));
    KSWinEx window = allocatedWindow(KS_INTLV_BAND, dataSet->nXSize, dataSet->nYSize, {0});
    for (int b = 0; b < dataSet->Sensor.nNumBands; ++b) {
        const BandStatistics& known = expected[static_cast<std::size_t>(b)];
        const BandStatistics actual = statisticsOf(*dataSet, b, window);
        // The table gives nine digits, which tell any two singles apart.
        EXPECT_EQ(actual.min, static_cast<double>(static_cast<float>(known.min))) << "band " << b;
        EXPECT_EQ(actual.max, static_cast<double>(static_cast<float>(known.max))) << "band " << b;
        EXPECT_NEAR(actual.mean, known.mean, 1e-6 * std::max(std::abs(known.mean), 1e-3 * (known.max - known.min)))
            << "band " << b;
        EXPECT_NEAR(actual.wavelength, known.wavelength, 1e-3) << "band " << b;
    }
    KSFreeWinEx(&window);
    while (dataSet->nNumRadTrans > 0) KSDelRadTrans(dataSet);
    EXPECT_EQ(KSClose(dataSet), 0);
}

using RealCubes = EndToEnd;

TEST_F(RealCubes, GiveTheirKnownStatistics) {
    const char* data = std::getenv("KSLIB_DATA");
    if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA does not name a folder of sample cubes";
    const std::string ending = ".statistics.csv";
    int cubes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(data)) {
        const std::string path = entry.path().string();
        if (path.size() <= ending.size() || path.substr(path.size() - ending.size()) != ending) continue;
        ++cubes;
        expectStatistics(path.substr(0, path.size() - ending.size()), readStatistics(path));
    }
    EXPECT_GT(cubes, 0) << data;
}

// ---- foreign images ----

struct ForeignImage : EndToEnd, testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Names, ForeignImage, testing::Values("cube.img", "cube", "cube.v1_rfl"));

TEST_P(ForeignImage, ClosingAfterReadWriteLeavesImageAndHeaderByteForByte) {
    const std::string name = folder.path(GetParam());
    const std::string header =
        "ENVI\r\n; written by hand\r\nSAMPLES=3\r\nlines = 2\r\nBands = 4\r\nbands = 2\r\nheader offset = 5\r\n"
        "data type = 12\r\ninterleave = BIL\r\nbyte order = 1\r\nwavelength units = \xb5m\r\n"
        "wavelength = {0.9, 0.5}\r\nodd key =\r\nbbl = {1.0, 0.0}\r\n";
    const std::string samples = "start" + std::string(24, '\7');
    const auto put = [](const std::string& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary) << bytes;
    };
    const auto contents = [](const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    };
    put(name + ".hdr", header);
    put(name, samples);
    for (const int year : {0, 1999}) {
        KSDataSet* dataSet = KSOpen(name.c_str(), "r+");
        ASSERT_NE(dataSet, nullptr);
        ASSERT_EQ(dataSet->Sensor.nNumBands, 2);
        EXPECT_EQ(dataSet->Sensor.pBandResp[0].fCentre, 900.0F) << "micrometres, in the file's own order";
        EXPECT_EQ(dataSet->Sensor.pBandResp[1].fCentre, 500.0F);
        EXPECT_EQ(dataSet->Sensor.peBandQual[1], KS_BQ_MASK);
        if (year != 0) dataSet->Mission.nYear = year;
        EXPECT_EQ(KSClose(dataSet), 0);
        EXPECT_EQ(contents(name + ".hdr"), header);
        EXPECT_EQ(contents(name), samples);
    }
    KSDataSet* dataSet = KSOpen(name.c_str(), "r");
    ASSERT_NE(dataSet, nullptr);
    EXPECT_EQ(dataSet->Mission.nYear, 1999) << "stored beside the image";
    EXPECT_EQ(dataSet->Sensor.pBandResp[0].fCentre, 900.0F);
    EXPECT_EQ(KSClose(dataSet), 0);
}

// ---- killed while closing ----

constexpr int kOldYear = 2001;
constexpr int kNewYear = 2002;
constexpr float kOldCentre = 400.0F;
constexpr float kNewCentre = 500.0F;

void describeAs(KSDataSet& dataSet, int year, float centre) {
    dataSet.Mission.nYear = year;
    for (int b = 0; b < dataSet.Sensor.nNumBands; ++b) {
        dataSet.Sensor.pBandResp[b].eRespType = KS_RT_BOX;
        dataSet.Sensor.pBandResp[b].fCentre = centre + static_cast<float>(b);
        dataSet.Sensor.pBandResp[b].fFWHM = 1.0F;
    }
}

/// Opens the image, changes its metadata, lets the parent take over and closes it.
[[noreturn]] void closeUnderTrace(const std::string& name) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(3);
    KSDataSet* dataSet = KSOpen(name.c_str(), "r+");
    if (dataSet == nullptr) _exit(2);
    describeAs(*dataSet, kNewYear, kNewCentre);
    raise(SIGSTOP);
    _exit(KSClose(dataSet) == 0 ? 0 : 1);
}

enum class Ending { killed, finished, untraceable, failed };

/// Lets a child close the image and kills it at its nth entry to or return from the system.
Ending closeKilledAt(const std::string& name, int stop) {
    const pid_t child = fork();
    if (child == 0) closeUnderTrace(name);
    int status = 0;
    if (waitpid(child, &status, 0) != child) return Ending::failed;
    if (WIFEXITED(status)) return WEXITSTATUS(status) == 3 ? Ending::untraceable : Ending::failed;
    for (int i = 0; i < stop; ++i) {
        if (ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) != 0) return Ending::failed;
        if (waitpid(child, &status, 0) != child) return Ending::failed;
        if (WIFEXITED(status)) return WEXITSTATUS(status) == 0 ? Ending::finished : Ending::failed;
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return Ending::killed;
}

struct Killed : EndToEnd, testing::WithParamInterface<const char*> {
    std::string name = folder.path(GetParam());

    void create() const {
        KSDataSet* dataSet = heapDataSet(3);
        dataSet->szFileName = heapText(name);
        dataSet->nXSize = 4;
        dataSet->nYSize = 3;
        describeAs(*dataSet, kOldYear, kOldCentre);
        ASSERT_EQ(KSCreate(dataSet), 0);
        KSWinEx window = allocatedWindow(KS_INTLV_PIXEL, 4, 3, {0, 1, 2});
        for (int i = 0; i < 36; ++i) window.pafSamples[i] = static_cast<float>(i);
        ASSERT_EQ(KSWriteWinEx(dataSet, &window), 0);
        KSFreeWinEx(&window);
        ASSERT_EQ(KSClose(dataSet), 0);
    }
    /// True when the new metadata is there; anything but all old or all new is a failure.
    bool isNew() const {
        KSDataSet* dataSet = KSOpen(name.c_str(), "r");
        EXPECT_NE(dataSet, nullptr);
        if (dataSet == nullptr) return false;
        const bool renewed = dataSet->Mission.nYear == kNewYear;
        EXPECT_EQ(dataSet->Mission.nYear, renewed ? kNewYear : kOldYear);
        EXPECT_EQ(dataSet->Sensor.nNumBands, 3);
        for (int b = 0; b < dataSet->Sensor.nNumBands; ++b) {
            EXPECT_EQ(dataSet->Sensor.pBandResp[b].fCentre,
                      (renewed ? kNewCentre : kOldCentre) + static_cast<float>(b));
        }
        KSWinEx window = allocatedWindow(KS_INTLV_PIXEL, 4, 3, {0, 1, 2});
        EXPECT_EQ(KSReadWinEx(dataSet, &window), 0);
        for (int i = 0; i < 36; ++i) EXPECT_EQ(window.pafSamples[i], static_cast<float>(i));
        KSFreeWinEx(&window);
        EXPECT_EQ(KSClose(dataSet), 0);
        return renewed;
    }
    void makeOldAgain() const {
        KSDataSet* dataSet = KSOpen(name.c_str(), "r+");
        ASSERT_NE(dataSet, nullptr);
        describeAs(*dataSet, kOldYear, kOldCentre);
        ASSERT_EQ(KSClose(dataSet), 0);
    }
};
INSTANTIATE_TEST_SUITE_P(Formats, Killed, testing::Values("killed.img", "killed.tif"),
                         [](const auto& test) { return std::string(test.param).substr(7); });

/// How many moments lie from one kill to the next: odd, so that entries to the system and returns from it both come up.
int strideOfMoments() {
    if (std::getenv("KSLIB_EVERY_MOMENT") != nullptr) return 1;
#ifdef __SANITIZE_ADDRESS__
    return 9;
#else
    return 3;
#endif
}

TEST_P(Killed, AtAnyMomentOfClosingTheMetadataIsOldOrNew) {
    create();
    int old = 0;
    for (int stop = 0;; stop += strideOfMoments()) {
        const Ending ending = closeKilledAt(name, stop);
        if (ending == Ending::untraceable) GTEST_SKIP() << "this system lets no process trace its child";
        ASSERT_NE(ending, Ending::failed) << "stop " << stop;
        SCOPED_TRACE("killed at stop " + std::to_string(stop));
        const bool isRenewed = isNew();
        if (HasFailure()) return;
        if (!isRenewed) ++old;
        if (ending == Ending::finished) {
            EXPECT_TRUE(isRenewed);
            break;
        }
        if (isRenewed) makeOldAgain();
        ASSERT_LT(stop, 5000);
    }
    EXPECT_GT(old, 0);
}

}  // namespace
