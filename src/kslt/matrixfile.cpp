#include "kslt/matrixfile.hpp"

#include <climits>
#include <cstdint>

// Meschach's declarations of these two come with its complex numbers, which nobody here wants.
extern "C" {
MAT* m_save(FILE* fp, MAT* matrix, char* name);
MAT* m_load(FILE* fp, char** name);
}

namespace ks {

namespace {

/// A header of either width.
struct Header {
    std::int64_t type;
    std::int64_t rows;
    std::int64_t columns;
    std::int64_t imaginary;
    std::int64_t nameLength;  // with its terminator
};

template <class Integer>
bool readHeader(std::FILE* file, Header& header) {
    Integer fields[5];
    if (std::fread(fields, sizeof fields, 1, file) != 1) return false;
    header = {fields[0], fields[1], fields[2], fields[3], fields[4]};
    return true;
}

/// Bytes from here to the end of the file; -1 when it cannot be told.
std::int64_t bytesLeft(std::FILE* file) {
    const long here = std::ftell(file);
    if (here < 0 || std::fseek(file, 0, SEEK_END) != 0) return -1;
    const long end = std::ftell(file);
    return std::fseek(file, here, SEEK_SET) == 0 && end >= here ? end - here : -1;
}

/// Whether sizes are positive, and name and values are there in full.
bool isSound(const Header& header, std::int64_t elementBytes, std::int64_t available) {
    constexpr std::int64_t kShortestName = 2;
    constexpr std::int64_t kLongestName = 64;
    if (header.imaginary != 0) return false;
    if (header.nameLength < kShortestName || header.nameLength > kLongestName) return false;
    if (header.rows < 1 || header.columns < 1 || header.rows > INT_MAX || header.columns > INT_MAX) return false;
    const std::size_t values = memory::product({header.rows, header.columns, elementBytes});
    return available >= header.nameLength && values <= static_cast<std::size_t>(available - header.nameLength);
}

/// Reads the name behind a header; null when it has no terminator inside.
Heap<char> readName(std::FILE* file, const Header& header) {
    const std::size_t length = static_cast<std::size_t>(header.nameLength);
    Heap<char> name(static_cast<char*>(memory::allocate(length)));
    if (!name || std::fread(name.get(), length, 1, file) != 1) return nullptr;
    return std::memchr(name.get(), '\0', length) != nullptr ? std::move(name) : nullptr;
}

// ---- headers of five longs ----

/// Bytes of a value by Meschach's type code: columns or rows first, double or single precision; 0 for others.
std::int64_t meschachElementBytes(std::int64_t type) {
    if (type == 1000 || type == 1100) return 8;
    if (type == 1010 || type == 1110) return 4;
    return 0;
}

bool loadWide(std::FILE* file, const Header& header, long start, NamedMatrix& loaded) {
    if (!isSound(header, meschachElementBytes(header.type), bytesLeft(file))) return false;
    if (!readName(file, header) || std::fseek(file, start, SEEK_SET) != 0) return false;
    char* name = nullptr;
    loaded.matrix.reset(underMatrixTrap(static_cast<MAT*>(nullptr), [&] { return m_load(file, &name); }));
    loaded.name.reset(name);
    return loaded.matrix && loaded.name;
}

// ---- headers of five 32-bit integers ----

template <class Value>
bool readColumns(std::FILE* file, MAT& matrix) {
    for (u_int column = 0; column < matrix.n; ++column) {
        for (u_int row = 0; row < matrix.m; ++row) {
            Value value;
            if (std::fread(&value, sizeof value, 1, file) != 1) return false;
            matrix.me[row][column] = static_cast<double>(value);
        }
    }
    return true;
}

/// What the decimal digits of a type say of its values: how wide they are, and how a matrix of them is read.
struct Precision {
    std::int64_t bytes;
    bool (*read)(std::FILE*, MAT&);
};

constexpr Precision kPrecisions[] = {
    {8, readColumns<double>},       {4, readColumns<float>},         {4, readColumns<std::int32_t>},
    {2, readColumns<std::int16_t>}, {2, readColumns<std::uint16_t>}, {1, readColumns<std::uint8_t>},
};

/// The precision of a full little-endian matrix; null for anything else.
const Precision* precisionOf(std::int64_t type) {
    const bool full = type >= 0 && type % 10 == 0;
    const std::size_t digit = full ? static_cast<std::size_t>(type / 10) : SIZE_MAX;
    return digit < sizeof kPrecisions / sizeof *kPrecisions ? &kPrecisions[digit] : nullptr;
}

bool loadNarrow(std::FILE* file, const Header& header, NamedMatrix& loaded) {
    const Precision* precision = precisionOf(header.type);
    if (precision == nullptr || !isSound(header, precision->bytes, bytesLeft(file))) return false;
    loaded.name = readName(file, header);
    if (!loaded.name) return false;
    loaded.matrix = makeMatrix(static_cast<int>(header.rows), static_cast<int>(header.columns));
    return loaded.matrix && precision->read(file, *loaded.matrix);
}

}  // namespace

bool loadMatrix(std::FILE* file, NamedMatrix& loaded) {
    const long start = std::ftell(file);
    if (start < 0) return false;
    Header header{};
    if (readHeader<long>(file, header) && meschachElementBytes(header.type) != 0) {
        return loadWide(file, header, start, loaded);
    }
    if (std::fseek(file, start, SEEK_SET) != 0 || !readHeader<std::int32_t>(file, header)) return false;
    return loadNarrow(file, header, loaded);
}

bool saveMatrix(std::FILE* file, MAT* matrix, const char* name) {
    char text[8];
    std::snprintf(text, sizeof text, "%s", name);
    const MAT* saved = underMatrixTrap(static_cast<MAT*>(nullptr), [&] { return m_save(file, matrix, text); });
    // Meschach does not look whether its bytes were taken.
    return saved != nullptr && std::fflush(file) == 0 && std::ferror(file) == 0;
}

}  // namespace ks
