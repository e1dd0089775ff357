// Progress of long operations: to the application's handler, else as a bar on a terminal, else nowhere.
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "kshost_app.h"

namespace kshost {
namespace {

constexpr int kBarWidth = 50;
constexpr double kStart = -1.0;
constexpr double kFinish = 2.0;

struct Progress {
    KSHostProgressHandler handler = nullptr;
    void* user = nullptr;
    int drawnPercent = -1;  // -1: no bar stands on the terminal
};
Progress progress;

void drawBar(double fraction) {
    const double within = fraction > 0.0 ? std::min(fraction, 1.0) : 0.0;  // NaN draws an empty bar
    const int percent = static_cast<int>(within * 100.0);
    if (percent == progress.drawnPercent) return;
    progress.drawnPercent = percent;
    char bar[kBarWidth + 1] = {};
    std::fill_n(bar, kBarWidth, ' ');
    std::fill_n(bar, percent * kBarWidth / 100, '#');
    std::fprintf(stderr, "\r[%s] %3d%%", bar, percent);
    std::fflush(stderr);
}

void drawOnTerminal(double fraction) {
    if (isatty(STDERR_FILENO) == 0) return;
    if (fraction <= kStart) {
        progress.drawnPercent = -1;
        drawBar(0.0);
    } else if (fraction >= kFinish) {
        if (progress.drawnPercent >= 0) std::fputc('\n', stderr);
        progress.drawnPercent = -1;
    } else {
        drawBar(fraction);
    }
}

}  // namespace
}  // namespace kshost

void KSHostSetProgressHandler(KSHostProgressHandler pfHandler, void* pUser) {
    kshost::progress.handler = pfHandler;
    kshost::progress.user = pUser;
}

void IMPCounter(int /*nDone*/, double dFraction) {
    if (kshost::progress.handler != nullptr) {
        kshost::progress.handler(kshost::progress.user, dFraction);
    } else {
        kshost::drawOnTerminal(dFraction);
    }
}
