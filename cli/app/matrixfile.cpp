#include "app/matrixfile.hpp"

#include <cstdint>
#include <cstring>

#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"

namespace kscli {
namespace {

bool isNumPy(const std::string& name) { return lowerExtension(name) == ".npy"; }

std::string csv(const std::vector<double>& rows, const std::vector<std::string>& labels) {
    std::string text;
    for (std::size_t i = 0; i < labels.size(); ++i) text += (i > 0 ? "," : "") + labels[i];
    text += '\n';
    for (std::size_t i = 0; i < rows.size(); ++i) {
        text += fmt::format("{}{}", rows[i], (i + 1) % labels.size() == 0 ? '\n' : ',');
    }
    return text;
}

// Magic and version 1.0, the length of the heading in two bytes, the heading as a Python dictionary ending a multiple
// of 64 bytes, and the numbers as they are.
std::string npy(const std::vector<double>& rows, std::size_t count) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the heading says so");
    constexpr std::size_t kBefore = 10;
    constexpr std::size_t kMultiple = 64;
    std::string heading = fmt::format("{{'descr': '<f8', 'fortran_order': False, 'shape': ({0}, {0}), }}", count);
    heading.append(kMultiple - 1 - (kBefore + heading.size()) % kMultiple, ' ');
    heading += '\n';
    std::string bytes("\x93NUMPY\x01\x00", 8);
    bytes += static_cast<char>(heading.size() & 0xffU);
    bytes += static_cast<char>(heading.size() >> 8U);
    bytes += heading;
    const std::size_t start = bytes.size();
    bytes.resize(start + rows.size() * sizeof(double));
    std::memcpy(bytes.data() + start, rows.data(), rows.size() * sizeof(double));
    return bytes;
}

}  // namespace

void requireMatrixName(const std::string& name) {
    if (!isNumPy(name) && lowerExtension(name) != ".csv") {
        fail("'{}': a matrix is written as .csv, or as .npy for NumPy.", name);
    }
}

void writeMatrix(const std::vector<double>& rows, const std::vector<std::string>& labels, const std::string& name) {
    writeText(isNumPy(name) ? npy(rows, labels.size()) : csv(rows, labels), name);
}

}  // namespace kscli
