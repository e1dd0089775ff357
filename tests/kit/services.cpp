// The fake host's reports, traps, sorting, memory allowance and progress.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fakehost.hpp"
#include "print.hpp"

namespace kit {
namespace {

__attribute__((format(printf, 1, 0))) std::string expand(const char* format, va_list values) {
    va_list again;
    va_copy(again, values);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, values);
    text.pop_back();
    return text;
}

/// The first argument, which is the reporting function's name, when the format asks for a text first.
std::string labelOf(const char* format, va_list values) {
    const char* placeholder = std::strchr(format, '%');
    if (placeholder == nullptr || placeholder[1] != 's') return "";
    va_list again;
    va_copy(again, values);
    const char* label = va_arg(again, const char*);
    va_end(again);
    return label == nullptr ? "" : label;
}

int fatal = 0;

}  // namespace
}  // namespace kit

using namespace kit;

extern "C" {

void IMPError(int nCode, int nSeverity, const char* szFormat, ...) {
    va_list values;
    va_start(values, szFormat);
    const std::string label = labelOf(szFormat, values);
    const std::string text = expand(szFormat, values);
    va_end(values);
    host().enter("IMPError", arguments(nCode, nSeverity, text));
    host().reports.push_back({false, nCode, nSeverity, szFormat, label, text});
}

void Debug(const char* szFormat, ...) {
    va_list values;
    va_start(values, szFormat);
    const std::string label = labelOf(szFormat, values);
    const std::string text = expand(szFormat, values);
    va_end(values);
    host().enter("Debug", arguments(text));
    host().reports.push_back({true, 0, 0, szFormat, label, text});
}

int IMPFatal(int bFatal) {
    host().enter("IMPFatal", arguments(bFatal));
    const int previous = fatal;
    fatal = bFatal;
    return previous;
}

void IMPErrChar(int nCode, int nSeverity, const char* szParam, const char* szText) {
    host().enter("IMPErrChar", arguments(nCode, nSeverity, szParam, szText));
    host().reports.push_back({false, nCode, nSeverity, "", szParam, szText});
}

void* IMP_Protect(void) {
    if (!host().enter("IMP_Protect", "")) return nullptr;
    return host().traps().emplace_back(std::make_unique<Trap>()).get();
}

jmp_buf* IMPProtectBuffer(void) {
    host().enter("IMPProtectBuffer", "");
    return host().traps().empty() ? nullptr : &host().traps().back()->buffer;
}

void IMPUnprotect(void) {
    host().enter("IMPUnprotect", "");
    if (host().traps().empty()) {
        host().misuse.emplace_back("IMPUnprotect without a trap");
    } else {
        host().traps().pop_back();
    }
}

void ORV_qsort(void* pBase, size_t nCount, size_t nSize, int (*pfCompare)(const void*, const void*)) {
    host().enter("ORV_qsort", arguments(static_cast<const void*>(pBase), nCount, nSize));
    std::qsort(pBase, nCount, nSize, pfCompare);
}

int IMPGetMemory(int* pbFlag) {
    host().enter("IMPGetMemory", "");
    if (pbFlag != nullptr) *pbFlag = host().memoryFlag;
    return host().memory;
}

void IMPCounter(int nDone, double dFraction) { host().enter("IMPCounter", arguments(nDone, dFraction)); }

}  // extern "C"
