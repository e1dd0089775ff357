#include "classicnetcdf.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <optional>
#include <vector>

#include "kshost_app.h"

namespace kshost {
namespace {

constexpr std::uint64_t kDimensions = 10;
constexpr std::uint64_t kVariables = 11;
constexpr std::uint64_t kAttributes = 12;
// Bytes of one value, by type code from 1 on: byte, char, short, int, float, double, ubyte, ushort, uint, int64,
// uint64.
constexpr std::array<std::uint64_t, 12> kTypeBytes = {0, 1, 1, 2, 4, 4, 8, 1, 2, 4, 8, 8};

struct EndOfFile {};
struct NoNetcdf {};

std::uint64_t padded(std::uint64_t bytes) { return bytes + (4 - bytes % 4) % 4; }

/// Counts of a damaged header may be anything; what exceeds every file need not be exact.
std::uint64_t product(std::uint64_t a, std::uint64_t b) {
    std::uint64_t result = 0;
    return __builtin_mul_overflow(a, b, &result) || result > INT64_MAX ? INT64_MAX : result;
}
std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
    std::uint64_t result = 0;
    return __builtin_add_overflow(a, b, &result) || result > INT64_MAX ? INT64_MAX : result;
}

/// The bytes of one variable: all of them, or those of one record.
struct Extent {
    std::uint64_t begin = 0;
    std::uint64_t bytes = 0;
    bool isRecord = false;
};

class Header {
public:
    Header(std::istream& file, std::uint64_t size) : file_(file), size_(size) {}

    /// Where the last value ends.
    std::uint64_t end() {
        readStart();
        readDimensions();
        skipAttributes();
        std::vector<Extent> extents;
        for (std::uint64_t left = list(kVariables); left > 0; --left) extents.push_back(variable());
        return endOf(extents);
    }

private:
    /// A big-endian number.
    std::uint64_t number(std::uint64_t bytes) {
        if (position_ + bytes > size_) throw EndOfFile();
        std::array<char, 8> raw{};
        if (!file_.read(raw.data(), static_cast<std::streamsize>(bytes))) throw EndOfFile();
        position_ += bytes;
        std::uint64_t value = 0;
        for (std::uint64_t i = 0; i < bytes; ++i) value = value << 8U | static_cast<unsigned char>(raw[i]);
        return value;
    }
    std::uint64_t count() { return number(version_ == 5 ? 8 : 4); }
    void skip(std::uint64_t bytes) {
        if (bytes > size_ - position_) throw EndOfFile();
        position_ += bytes;
        file_.seekg(static_cast<std::streamoff>(position_));
    }
    void skipName() { skip(padded(std::min<std::uint64_t>(count(), size_))); }
    std::uint64_t typeBytes() {
        const std::uint64_t type = number(4);
        if (type < 1 || type >= kTypeBytes.size()) throw NoNetcdf();
        return kTypeBytes[type];
    }
    /// How many elements follow. A list without any has neither tag nor count.
    std::uint64_t list(std::uint64_t tag) {
        const std::uint64_t found = number(4);
        const std::uint64_t elements = count();
        if (found != tag && (found != 0 || elements != 0)) throw NoNetcdf();
        return elements;
    }

    void readStart() {
        constexpr std::uint64_t kMagic = 0x434446;  // "CDF"
        if (size_ < 4 || number(3) != kMagic) throw NoNetcdf();
        version_ = number(1);
        if (version_ != 1 && version_ != 2 && version_ != 5) throw NoNetcdf();
        records_ = count();
        // Written while records were still coming: there are as many as fit.
        if (records_ == (version_ == 5 ? UINT64_MAX : UINT32_MAX)) records_ = 0;
    }
    void readDimensions() {
        for (std::uint64_t left = list(kDimensions); left > 0; --left) {
            skipName();
            dimensions_.push_back(count());
        }
    }
    void skipAttributes() {
        for (std::uint64_t left = list(kAttributes); left > 0; --left) {
            skipName();
            const std::uint64_t each = typeBytes();
            skip(padded(std::min(product(each, count()), size_)));
        }
    }
    Extent variable() {
        skipName();
        Extent extent;
        std::uint64_t values = 1;
        for (std::uint64_t left = count(); left > 0; --left) {
            const std::uint64_t dimension = count();
            if (dimension >= dimensions_.size()) throw NoNetcdf();
            // The dimension of records has the length 0 here.
            if (dimensions_[dimension] == 0) {
                extent.isRecord = true;
            } else {
                values = product(values, dimensions_[dimension]);
            }
        }
        skipAttributes();
        extent.bytes = product(values, typeBytes());
        count();  // the size again, wrong for variables above 4 GiB
        extent.begin = number(version_ == 1 ? 4 : 8);
        return extent;
    }
    std::uint64_t endOf(const std::vector<Extent>& extents) const {
        const auto isRecord = [](const Extent& extent) { return extent.isRecord; };
        const bool alone = std::count_if(extents.begin(), extents.end(), isRecord) == 1;
        std::uint64_t recordBytes = 0;
        for (const Extent& extent : extents) {
            // The records of one variable alone follow each other without padding.
            if (extent.isRecord) recordBytes = sum(recordBytes, alone ? extent.bytes : padded(extent.bytes));
        }
        std::uint64_t end = position_;
        for (const Extent& extent : extents) {
            if (extent.isRecord && records_ == 0) continue;
            const std::uint64_t before = extent.isRecord ? product(records_ - 1, recordBytes) : 0;
            end = std::max(end, sum(extent.begin, sum(before, extent.bytes)));
        }
        return end;
    }

    std::istream& file_;
    std::uint64_t size_;
    std::uint64_t position_ = 0;
    std::uint64_t version_ = 0;
    std::uint64_t records_ = 0;
    std::vector<std::uint64_t> dimensions_;
};

}  // namespace

bool isCutShort(std::istream& file, std::uint64_t size) {
    try {
        return Header(file, size).end() > size;
    } catch (const EndOfFile&) {
        return true;
    } catch (const NoNetcdf&) {
        return false;
    }
}

bool isCutShort(const std::string& path) {
    std::error_code failed;
    const std::uintmax_t size = std::filesystem::file_size(path, failed);
    std::ifstream file(path, std::ios::binary);
    return !failed && file && isCutShort(file, size);
}

}  // namespace kshost

int KSHostIsCutShort(const char* szFileName) {
    return szFileName != nullptr && kshost::isCutShort(std::string(szFileName)) ? 1 : 0;
}
