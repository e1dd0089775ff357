// A locale with a decimal comma, for what must not depend on one.
#pragma once

#include <clocale>
#include <cstdlib>

namespace kit {

/// Makes numbers have a decimal comma from now on; `folder` holds the locale. The C library loses memory over a search
/// path that is set for longer than it takes.
inline bool useDecimalComma(const char* folder) {
    setenv("LOCPATH", folder, 1);
    const bool used = std::setlocale(LC_NUMERIC, "de_DE.UTF-8") != nullptr;
    unsetenv("LOCPATH");
    return used;
}

}  // namespace kit
