// One card: 80 columns, counted from 1 as the users of these files do.
#pragma once

#include <kslib/ksmodtran4.h>

#include <cstddef>
#include <cstring>
#include <initializer_list>

#include "support/number.hpp"

namespace ks {

class CardLine {
public:
    explicit CardLine(char* line) : line_(line) {
        std::memset(line_, ' ', kColumns);
        line_[kColumns] = '\0';
    }

    /// Writes the text of a value from a column on; null leaves the columns blank. False for a value without a text.
    [[nodiscard]] bool choose(int column, int value, std::initializer_list<const char*> texts) {
        if (value < 0 || value >= static_cast<int>(texts.size())) return false;
        const char* text = texts.begin()[value];
        if (text != nullptr) std::memcpy(line_ + column - 1, text, std::strlen(text));
        return true;
    }

    /// A number, right-aligned in `width` columns. It ends the text behind its last digit, until something is written
    /// there; one that is too wide runs on, up to column 80.
    void number(int column, int width, double value, int decimals) {
        end(put(column, width, NumberText(value, decimals).text()));
    }
    void number(int column, int width, int value) { end(put(column, width, NumberText(value).text())); }
    /// The same behind a letter.
    void number(int column, char letter, int width, double value, int decimals) {
        line_[column - 1] = letter;
        number(column + 1, width, value, decimals);
    }
    void blank(int column) { line_[column - 1] = ' '; }

private:
    static constexpr std::size_t kColumns = KS_MT4_LINE - 1;

    /// Returns the place behind the text.
    std::size_t put(int column, int width, const char* text) {
        const std::size_t length = std::strlen(text);
        std::size_t at = static_cast<std::size_t>(column - 1);
        for (std::size_t pad = length; pad < static_cast<std::size_t>(width); ++pad) line_[at++] = ' ';
        for (std::size_t i = 0; i < length && at < kColumns; ++i) line_[at++] = text[i];
        return at;
    }
    void end(std::size_t at) { line_[at] = '\0'; }

    char* line_;
};

}  // namespace ks
