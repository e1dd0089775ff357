// The spectral table of a tape7 file.
#include <kslib/ksmodtran4.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <locale.h>

namespace {

constexpr int kLineRoom = 200;  // characters read at a time, the end included
constexpr int kNumbers = 13;
constexpr int kFrequency = 0;
constexpr int kColumn8 = 7;
constexpr int kColumn10 = 9;
constexpr const char* kSpace = " \t\n\v\f\r";

/// True when nothing but white space is on the line.
bool isBlank(const char* line) { return line[std::strspn(line, kSpace)] == '\0'; }

/// The heading's first word, cut to four letters, is FREQ.
bool isHeading(const char* line) {
    constexpr std::size_t kLetters = 4;
    const char* word = line + std::strspn(line, kSpace);
    return std::strncmp(word, "FREQ", kLetters) == 0;
}

/// Reads numbers up to the first word that is none; those that are missing keep their value.
void readNumbers(const char* line, float (&numbers)[kNumbers]) {
    static const locale_t kNeutral = newlocale(LC_ALL_MASK, "C", nullptr);
    for (float& number : numbers) {
        char* end = nullptr;
        const float value = strtof_l(line, &end, kNeutral);
        if (end == line) return;
        number = value;
        line = end;
    }
}

bool findHeading(FILE* stream) {
    char line[kLineRoom];
    while (std::fgets(line, kLineRoom, stream) != nullptr) {
        if (isHeading(line)) return true;
        if (isBlank(line)) return false;
    }
    return false;
}

}  // namespace

int KSMT4ReadTape7(FILE* stream, float* pafFreq, float* pafCol8, float* pafCol10, int nMaxRows) {
    if (stream == nullptr || !findHeading(stream)) return 0;
    char line[kLineRoom];
    float numbers[kNumbers] = {};
    int rows = 0;
    while (rows < nMaxRows && std::fgets(line, kLineRoom, stream) != nullptr && !isBlank(line)) {
        readNumbers(line, numbers);
        if (!(numbers[kFrequency] >= 0.0F)) break;
        pafFreq[rows] = numbers[kFrequency];
        pafCol8[rows] = numbers[kColumn8];
        pafCol10[rows] = numbers[kColumn10];
        ++rows;
    }
    return rows;
}
