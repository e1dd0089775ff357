// What the application says and how it stops: failures as exceptions, notes and warnings on standard error, and reports
// of the library and its host in the same voice. Standard output carries data only.
#pragma once

#include <fmt/format.h>

#include <stdexcept>
#include <string>

namespace kscli {

/// A command that cannot go on. The text says what is wrong and what to do about it.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A result that was given up because samples or metadata could not all be moved.
struct Incomplete : Failure {
    using Failure::Failure;
};
/// Throws Incomplete when the host counted failed transfers or stores; `what` is the result that is not kept.
void requireComplete(const std::string& what);

template <class... Args>
[[noreturn]] void fail(fmt::format_string<Args...> format, Args&&... args) {
    throw Failure(fmt::format(format, std::forward<Args>(args)...));
}

/// Sends reports and progress of library and host to standard error, and lets Ctrl-C end a command cleanly.
void installHandlers(bool quiet);
/// In all that is said, `shown` stands for `hidden` from now on: paths of outputs that are still being made.
void showFolderAs(const std::string& hidden, const std::string& shown);
/// Throws a Failure once the user asked to stop; called wherever progress is made.
void throwIfInterrupted();

void printNote(const std::string& text);  // nothing when quiet
void printWarning(const std::string& text);
void printError(const std::string& text);

template <class... Args>
void note(fmt::format_string<Args...> format, Args&&... args) {
    printNote(fmt::format(format, std::forward<Args>(args)...));
}
template <class... Args>
void warn(fmt::format_string<Args...> format, Args&&... args) {
    printWarning(fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace kscli
