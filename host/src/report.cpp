// Reports, traps and the other small services of the host that need neither a file nor an image.
// A report is formatted here and handed to one handler; a trap is a return point that a failing host call jumps to.
#include "report.hpp"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "kshost_app.h"
#include "text.hpp"

namespace kshost {
namespace {

constexpr int kDefaultMemory = 256 * 1024 * 1024;
constexpr int kMaxTraps = 32;

struct Settings {
    KSHostErrorHandler onError = nullptr;
    void* errorUser = nullptr;
    KSHostDebugHandler onDebug = nullptr;
    void* debugUser = nullptr;
    int failures = 0;
    int memory = 0;  // 0: the default
    bool errorsAreFatal = false;
};
Settings settings;

// Each thread has its own return points: a jump must never cross into another thread's stack.
struct Traps {
    jmp_buf buffers[kMaxTraps];
    int armed = 0;
};
thread_local Traps traps;

void printLine(const char* text) {
    const size_t length = std::strlen(text);
    std::fputs(text, stderr);
    if (length == 0 || text[length - 1] != '\n') std::fputc('\n', stderr);
}

void deliver(int code, int severity, const char* text) {
    if (settings.onError != nullptr) {
        settings.onError(settings.errorUser, code, severity, text);
    } else {
        printLine(text);
    }
}

void deliverDebug(const char* text) {
    if (settings.onDebug != nullptr) {
        settings.onDebug(settings.debugUser, text);
    } else if (std::getenv("KSHOST_DEBUG") != nullptr) {
        printLine(text);
    }
}

/// Formats a report; when it cannot be formatted or held, the bare format still says which report it was.
template <class Deliver>
[[gnu::format(printf, 1, 0)]] void formatted(const char* format, std::va_list arguments, Deliver deliverText) {
    if (format == nullptr) return deliverText("(report without a text)");
    char shortText[1024];
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(shortText, sizeof shortText, format, arguments);
    if (length < 0) {
        deliverText(format);
    } else if (static_cast<size_t>(length) < sizeof shortText) {
        deliverText(shortText);
    } else {
        const size_t size = static_cast<size_t>(length) + 1;
        char* longText = static_cast<char*>(std::malloc(size));
        if (longText != nullptr) std::vsnprintf(longText, size, format, again);
        deliverText(longText != nullptr ? longText : shortText);
        std::free(longText);
    }
    va_end(again);
}

void endIfFatal() {
    if (settings.errorsAreFatal) std::exit(EXIT_FAILURE);
}

int defaultMemory() {
    const char* text = std::getenv("KSHOST_MEMORY");
    const double bytes = text != nullptr ? leadingNumber(text) : 0.0;
    if (!(bytes >= 1.0)) return kDefaultMemory;
    return bytes >= INT_MAX ? INT_MAX : static_cast<int>(bytes);
}

}  // namespace

void reportFailure(const std::string& text) {
    ++settings.failures;
    deliver(kHostFailure, 1, text.c_str());
}

void reportNotice(const std::string& text) { deliver(kHostFailure, 0, text.c_str()); }

void abandonIfTrapped() {
    if (traps.armed == 0) return;
    --traps.armed;
    longjmp(traps.buffers[traps.armed], 1);
}

}  // namespace kshost

using kshost::settings;
using kshost::traps;

void KSHostSetErrorHandler(KSHostErrorHandler pfHandler, void* pUser) {
    settings.onError = pfHandler;
    settings.errorUser = pUser;
}

void KSHostSetDebugHandler(KSHostDebugHandler pfHandler, void* pUser) {
    settings.onDebug = pfHandler;
    settings.debugUser = pUser;
}

int KSHostErrorCount(void) { return settings.failures; }

void KSHostResetErrorCount(void) { settings.failures = 0; }

void KSHostSetMemory(int nBytes) { settings.memory = nBytes > 0 ? nBytes : 0; }

void IMPError(int nCode, int nSeverity, const char* szFormat, ...) {
    std::va_list arguments;
    va_start(arguments, szFormat);
    kshost::formatted(szFormat, arguments, [=](const char* text) { kshost::deliver(nCode, nSeverity, text); });
    va_end(arguments);
    kshost::endIfFatal();
}

void Debug(const char* szFormat, ...) {
    std::va_list arguments;
    va_start(arguments, szFormat);
    kshost::formatted(szFormat, arguments, [](const char* text) { kshost::deliverDebug(text); });
    va_end(arguments);
}

int IMPFatal(int bFatal) {
    const int previous = settings.errorsAreFatal ? 1 : 0;
    settings.errorsAreFatal = bFatal != 0;
    return previous;
}

void IMPErrChar(int nCode, int nSeverity, const char* szParam, const char* szText) {
    IMPError(nCode, nSeverity, "%s: %s\n", szParam != nullptr ? szParam : "", szText != nullptr ? szText : "");
}

void* IMP_Protect(void) {
    if (traps.armed == kshost::kMaxTraps) return nullptr;
    return &traps.buffers[traps.armed++];
}

jmp_buf* IMPProtectBuffer(void) { return traps.armed == 0 ? nullptr : &traps.buffers[traps.armed - 1]; }

void IMPUnprotect(void) {
    if (traps.armed > 0) --traps.armed;
}

void ORV_qsort(void* pBase, size_t nCount, size_t nSize, int (*pfCompare)(const void*, const void*)) {
    if (pBase == nullptr || nCount < 2 || nSize == 0 || pfCompare == nullptr) return;
    std::qsort(pBase, nCount, nSize, pfCompare);
}

int IMPGetMemory(int* pbFlag) {
    if (pbFlag != nullptr) *pbFlag = 1;
    return settings.memory > 0 ? settings.memory : kshost::defaultMemory();
}
