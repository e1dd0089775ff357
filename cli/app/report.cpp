#include "app/report.hpp"

#include <csignal>
#include <cstdio>
#include <map>
#include <set>

#include <kshost_app.h>

namespace kscli {
namespace {

bool quiet = false;
volatile std::sig_atomic_t stopSignal = 0;

void onSignal(int signal) { stopSignal = signal; }

// Where outputs are made until they are complete is nothing that a user knows.
std::string hiddenFolder;
std::string shownFolder;

void print(const char* kind, std::string text) {
    for (std::size_t at = 0; !hiddenFolder.empty() && (at = text.find(hiddenFolder, at)) != std::string::npos;) {
        text.replace(at, hiddenFolder.size(), shownFolder);
        at += shownFolder.size();
    }
    fmt::print(stderr, "ks: {}{}\n", kind, text);
}

std::string withoutLineEnd(const char* text) {
    std::string line = text != nullptr ? text : "";
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) line.pop_back();
    return line;
}

// "GDBOpen (): cube.img: ..." without the function that says so.
std::string withoutLabel(const std::string& line) {
    const std::size_t label = line.find(" (): ");
    const bool isName = label != std::string::npos && line.find(' ') == label;
    return isName ? line.substr(label + 5) : line;
}

// A cube is opened more than once by some commands, and a damaged file fails alike in every block: reports that differ
// in nothing but numbers are shown a few times only.
enum class Repetition { fresh, firstTooMany, tooMany };

Repetition countRepetition(const std::string& text) {
    constexpr int kShown = 3;
    static std::set<std::string> said;
    static std::map<std::string, int> kinds;
    if (!said.insert(text).second) return Repetition::tooMany;
    std::string kind;
    for (char c : text) {
        const bool digit = c >= '0' && c <= '9';
        if (!digit) {
            kind += c;
        } else if (kind.empty() || kind.back() != '0') {
            kind += '0';
        }
    }
    const int count = ++kinds[kind];
    if (count <= kShown) return Repetition::fresh;
    return count == kShown + 1 ? Repetition::firstTooMany : Repetition::tooMany;
}

// The host reports what it had to guess with this number and severity 0.
constexpr int kHostReport = 62;
// The library's one warning: a format could not take all fields of a layer.
constexpr int kLibraryWarning = -1;

void onReport(void*, int code, int severity, const char* text) noexcept {
    try {
        static bool explained = false;
        // What the library adds is that a call of the host failed, after the host said why.
        if (code != kHostReport && code != kLibraryWarning && explained) return;
        explained = explained || (code == kHostReport && severity > 0);
        const std::string line = withoutLabel(withoutLineEnd(text));
        const Repetition repetition = countRepetition(line);
        if (repetition == Repetition::tooMany) return;
        if (code == kHostReport && severity == 0) {
            printNote(line);
        } else if (code == kLibraryWarning) {
            printWarning(line);
        } else if (repetition == Repetition::firstTooMany) {
            printError("... and more of the same.");
        } else {
            printError(line);
        }
    } catch (...) {
        // Nothing may be thrown into the host; a report that cannot be formatted is lost.
    }
}

void noProgress(void*, double) {}

}  // namespace

void installHandlers(bool beQuiet) {
    quiet = beQuiet;
    KSHostSetErrorHandler(onReport, nullptr);
    if (quiet) KSHostSetProgressHandler(noProgress, nullptr);
    struct sigaction action = {};
    action.sa_handler = onSignal;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);  // a second Ctrl-C ends at once
    struct sigaction hangUp = {};
    sigaction(SIGHUP, nullptr, &hangUp);
    for (int signal : {SIGINT, SIGTERM}) sigaction(signal, &action, nullptr);
    if (hangUp.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);  // unless nohup started us
    std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow is a failed write like any other
}

void showFolderAs(const std::string& hidden, const std::string& shown) { hiddenFolder = hidden, shownFolder = shown; }

void throwIfInterrupted() {
    if (stopSignal != 0) throw Failure("stopped; nothing was left behind.");
}

void requireComplete(const std::string& what) {
    if (KSHostErrorCount() > 0) throw Incomplete(what + " is incomplete (see above) and was not kept.");
}

void printNote(const std::string& text) {
    if (!quiet) print("", text);
}
void printWarning(const std::string& text) { print("warning: ", text); }
void printError(const std::string& text) { print("error: ", text); }

}  // namespace kscli
