// Any bytes at all as a tape7 file: no more rows than there is room for, none with a negative frequency, and nothing
// written behind the last one.
#include <kslib/ksmodtran4.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace {

constexpr int kRoom = 8;
constexpr float kUntouched = -7.0F;

using Column = std::array<float, kRoom + 1>;

Column untouched() {
    Column column;
    column.fill(kUntouched);
    return column;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;  // no stream over nothing
    FILE* stream = fmemopen(const_cast<std::uint8_t*>(data), size, "r");
    if (stream == nullptr) return 0;
    Column frequencies = untouched();
    Column eighth = untouched();
    Column tenth = untouched();
    const int rows = KSMT4ReadTape7(stream, frequencies.data(), eighth.data(), tenth.data(), kRoom);
    std::fclose(stream);
    if (rows < 0 || rows > kRoom) __builtin_trap();
    for (std::size_t i = 0; i < frequencies.size(); ++i) {
        const bool filled = i < static_cast<std::size_t>(rows);
        if (filled && !(frequencies[i] >= 0.0F)) __builtin_trap();
        if (!filled && (frequencies[i] != kUntouched || eighth[i] != kUntouched || tenth[i] != kUntouched))
            __builtin_trap();
    }
    return 0;
}
