// Classic netCDF files that were not copied whole: told at every length, for every layout of values.
#include <gdal_priv.h>
#include <netcdf.h>
#include <classicnetcdf.hpp>
#include <raster.hpp>

#include <cstring>
#include <sstream>

#include "hostkit.hpp"

namespace {

// Values that nothing else in a file looks like.
constexpr double kLast = -1.2345678901234567e-211;
constexpr int kFormats[] = {0, NC_64BIT_OFFSET, NC_64BIT_DATA};

/// The bytes of a file that `define` gives dimensions and variables, and `fill` values.
template <class Define, class Fill>
std::string fileOf(int format, Define define, Fill fill) {
    hosttest::TemporaryFolder folder;
    const std::string path = folder / "file.nc";
    int file = 0;
    EXPECT_EQ(NC_NOERR, nc_create(path.c_str(), format, &file));
    define(file);
    EXPECT_EQ(NC_NOERR, nc_enddef(file));
    fill(file);
    EXPECT_EQ(NC_NOERR, nc_close(file));
    return hosttest::contentsOf(path);
}

int dimension(int file, const char* name, std::size_t length) {
    int id = 0;
    EXPECT_EQ(NC_NOERR, nc_def_dim(file, name, length, &id));
    return id;
}

int variable(int file, const char* name, nc_type type, const std::vector<int>& dimensions) {
    int id = 0;
    EXPECT_EQ(NC_NOERR, nc_def_var(file, name, type, static_cast<int>(dimensions.size()), dimensions.data(), &id));
    return id;
}

bool isCutShort(const std::string& bytes) {
    std::istringstream stream(bytes);
    return kshost::isCutShort(stream, bytes.size());
}

/// Every beginning of the file lacks something until `end`; then nothing does.
void expectWholeFrom(const std::string& bytes, std::size_t end) {
    ASSERT_LE(end, bytes.size());
    for (std::size_t length = 4; length <= bytes.size(); ++length) {
        ASSERT_EQ(length < end, isCutShort(bytes.substr(0, length))) << length << " of " << bytes.size();
    }
}

/// Where big-endian bytes of a value end that stands last in the file.
template <class T>
std::size_t endOfLast(const std::string& bytes, T value) {
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    const std::string wanted(std::make_reverse_iterator(raw + sizeof(T)), std::make_reverse_iterator(raw));
    const std::size_t at = bytes.rfind(wanted);
    EXPECT_NE(std::string::npos, at);
    return at + sizeof(T);
}

// ---- layouts ----

TEST(ClassicNetcdf, FixedVariablesWithAttributesOfEveryType) {
    for (const int format : kFormats) {
        const auto define = [format](int file) {
            const int x = dimension(file, "x", 5);
            const int y = dimension(file, "latitude", 3);
            nc_put_att_text(file, NC_GLOBAL, "title", 7, "unequal");
            const int grid = variable(file, "grid", NC_SHORT, {y, x});
            const int last = variable(file, "last", NC_DOUBLE, {x});
            variable(file, "scalar", NC_BYTE, {});
            const double numbers[] = {1, 2, 3};
            for (const nc_type type : {NC_BYTE, NC_SHORT, NC_INT, NC_FLOAT, NC_DOUBLE})
                nc_put_att_double(file, grid, ("a" + std::to_string(type)).c_str(), type, 3, numbers);
            if (format != NC_64BIT_DATA) return;
            for (const nc_type type : {NC_UBYTE, NC_USHORT, NC_UINT, NC_INT64, NC_UINT64})
                nc_put_att_double(file, last, ("a" + std::to_string(type)).c_str(), type, 3, numbers);
        };
        const std::string bytes = fileOf(format, define, [](int file) {
            const signed char scalar = 0x5b;
            nc_put_var_schar(file, 2, &scalar);
        });
        expectWholeFrom(bytes, endOfLast(bytes, static_cast<signed char>(0x5b)));
    }
}

TEST(ClassicNetcdf, EveryTypeOfValue) {
    for (nc_type type = NC_BYTE; type <= NC_UINT64; ++type) {
        const auto define = [type](int file) { variable(file, "v", type, {dimension(file, "x", 5)}); };
        const int format = type <= NC_DOUBLE ? 0 : NC_64BIT_DATA;
        const std::string bytes = fileOf(format, define, [](int) {});
        const std::size_t sizes[] = {0, 1, 1, 2, 4, 4, 8, 1, 2, 4, 8, 8};
        const std::size_t data = 5 * sizes[type];
        // The library pads what it writes to four bytes.
        expectWholeFrom(bytes, bytes.size() - (4 - data % 4) % 4);
    }
}

TEST(ClassicNetcdf, RecordsOfSeveralVariables) {
    for (const int format : kFormats) {
        const auto define = [](int file) {
            const int time = dimension(file, "time", NC_UNLIMITED);
            const int x = dimension(file, "x", 3);
            variable(file, "flags", NC_BYTE, {time, x});
            variable(file, "constant", NC_DOUBLE, {x});
            variable(file, "series", NC_DOUBLE, {time});
        };
        const std::string bytes = fileOf(format, define, [](int file) {
            const std::size_t at = 6;
            nc_put_var1_double(file, 2, &at, &kLast);
        });
        expectWholeFrom(bytes, endOfLast(bytes, kLast));
    }
}

TEST(ClassicNetcdf, RecordsOfOneVariableStandWithoutPadding) {
    for (const int format : kFormats) {
        const auto define = [](int file) {
            const int time = dimension(file, "time", NC_UNLIMITED);
            variable(file, "flags", NC_BYTE, {time, dimension(file, "x", 3)});
        };
        const std::string bytes = fileOf(format, define, [](int file) {
            const std::size_t start[] = {0, 0};
            const std::size_t count[] = {7, 3};
            const std::vector<signed char> values(21, 0x5b);
            nc_put_vara_schar(file, 0, start, count, values.data());
        });
        expectWholeFrom(bytes, bytes.find(std::string(21, 0x5b)) + 21);
    }
}

TEST(ClassicNetcdf, WithoutRecordsAndWithoutAnythingTheHeaderIsAll) {
    const auto define = [](int file) { variable(file, "series", NC_DOUBLE, {dimension(file, "time", NC_UNLIMITED)}); };
    // Lists of 8 or 12 bytes; a dimension of 12 or 20; a variable of 40, 44 or 64.
    const std::size_t headers[] = {8 + 3 * 8 + 12 + 40, 8 + 3 * 8 + 12 + 44, 12 + 3 * 12 + 20 + 64};
    const std::size_t empty[] = {8 + 3 * 8, 8 + 3 * 8, 12 + 3 * 12};
    for (std::size_t i = 0; i < 3; ++i) {
        expectWholeFrom(fileOf(kFormats[i], define, [](int) {}), headers[i]);
        expectWholeFrom(fileOf(
                            kFormats[i], [](int) {}, [](int) {}),
                        empty[i]);
    }
}

TEST(ClassicNetcdf, AStreamHasAsManyRecordsAsFit) {
    const auto define = [](int file) { variable(file, "series", NC_DOUBLE, {dimension(file, "time", NC_UNLIMITED)}); };
    std::string bytes = fileOf(0, define, [](int file) {
        const std::size_t at = 6;
        nc_put_var1_double(file, 0, &at, &kLast);
    });
    const std::size_t header = endOfLast(bytes, kLast) - 7 * sizeof(double);
    bytes.replace(4, 4, "\xff\xff\xff\xff");
    expectWholeFrom(bytes, header);
}

// ---- other bytes ----

TEST(ClassicNetcdf, OtherFilesLackNothing) {
    for (const std::string& bytes :
         {std::string(), std::string("C"), std::string("CDF"), std::string("CDF\x03 and more"),
          std::string("CDX\x01\0\0\0\0", 8), std::string("\x89HDF\r\n\x1a\n........"),
          std::string("CDF\x01\0\0\0\0\0\0\0\x07\0\0\0\0", 16), std::string("CDF\x01\0\0\0\0\0\0\0\0\0\0\0\x02", 16)}) {
        EXPECT_FALSE(isCutShort(bytes)) << bytes;
    }
    EXPECT_EQ(0, KSHostIsCutShort(nullptr));
    EXPECT_EQ(0, KSHostIsCutShort("/nowhere/file.nc"));
    EXPECT_EQ(0, KSHostIsCutShort("/tmp"));
}

TEST(ClassicNetcdf, CountsBeyondAllFilesAreNoEndlessWork) {
    // Dimensions, names, attributes and variables in numbers that no file has room for.
    const std::string start("CDF\x05\0\0\0\0\0\0\0\0", 12);
    const std::string most("\x7f\xff\xff\xff\xff\xff\xff\xff", 8);
    const std::string none(12, '\0');
    for (const std::string& bytes : {start + std::string("\0\0\0\x0a", 4) + most,
                                     start + std::string("\0\0\0\x0a", 4) + std::string(7, '\0') + '\1' + most,
                                     start + none + std::string("\0\0\0\x0c", 4) + most,
                                     start + none + none + std::string("\0\0\0\x0b", 4) + most}) {
        EXPECT_TRUE(isCutShort(bytes));
    }
}

TEST(ClassicNetcdf, AnImageThatWasNotCopiedWholeIsRefused) {
    hosttest::TemporaryFolder folder;
    const auto define = [](int file) {
        const int band = dimension(file, "band", 4);
        const int y = dimension(file, "y", 5);
        variable(file, "cube", NC_FLOAT, {band, y, dimension(file, "x", 6)});
    };
    const std::string bytes = fileOf(0, define, [](int) {});
    hosttest::write(folder / "whole.nc", bytes);
    hosttest::write(folder / "short.nc", bytes.substr(0, bytes.size() - 1));
    std::string why;
    EXPECT_NE(nullptr, kshost::openRaster(folder / "whole.nc", false, why)) << why;
    for (const std::string& name : {folder / "short.nc", "NETCDF:\"" + (folder / "short.nc") + "\":cube"}) {
        EXPECT_EQ(nullptr, kshost::openRaster(name, false, why));
        EXPECT_EQ("the file ends before the data that its header announces; get the whole file", why);
    }
    EXPECT_EQ(1, KSHostIsCutShort((folder / "short.nc").c_str()));
    EXPECT_EQ(0, KSHostIsCutShort((folder / "whole.nc").c_str()));
}

}  // namespace
