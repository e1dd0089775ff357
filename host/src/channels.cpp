// Channels of an image: what they are, and the transfer of rectangles. A transfer checks everything itself, because its
// callers do not look at its result: what cannot be read becomes NaN, never something that looks like data.
#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <new>
#include <string>

#include "hostfile.hpp"
#include "kshost_app.h"
#include "report.hpp"

namespace kshost {
namespace {

using Window = std::array<int, 4>;  // x offset, y offset, width, height

const RasterFacts* factsOf(HostFile* fp, const char* caller) {
    HostFile* file = live(fp, caller);
    if (file == nullptr) return nullptr;
    if (file->raster == nullptr) {
        reportFailure(std::string(caller) + ": " + file->name + " holds no image");
        return nullptr;
    }
    return &file->raster->facts();
}

template <class Body>
int factOf(HostFile* fp, const char* caller, Body body) {
    return guarded(caller, 0, [&] {
        const RasterFacts* facts = factsOf(fp, caller);
        return facts != nullptr ? body(*facts) : 0;
    });
}

/// A count that is 0 for a file of layers, which is no failure.
template <class Body>
int countOf(HostFile* fp, const char* caller, Body body) {
    return guarded(caller, 0, [&] {
        const HostFile* file = live(fp, caller);
        return file != nullptr && file->raster != nullptr ? body(file->raster->facts()) : 0;
    });
}

int channelType(HostFile* fp, int channel) {
    return factOf(fp, "GDBChanType ()", [channel](const RasterFacts& facts) {
        if (channel >= 1 && channel <= facts.channels) return facts.channelTypes[static_cast<std::size_t>(channel - 1)];
        reportFailure("GDBChanType (): there is no channel " + std::to_string(channel));
        return 0;
    });
}

struct Request {
    int mode, xOff, yOff, xSize, ySize;
    float* buffer;
    int bufXSize, bufYSize, channels;
    const int* channelList;
};

std::string whyBad(const Request& r, const RasterFacts& facts) {
    if (r.mode != 0 && r.mode != 1) return "mode " + std::to_string(r.mode) + " is neither reading nor writing";
    if (r.buffer == nullptr || r.channelList == nullptr) return "no buffer or no channel list given";
    if (r.channels < 1) return "no channels asked for";
    if (!inside(facts, r.xOff, r.yOff, r.xSize, r.ySize))
        return "the window " + std::to_string(r.xOff) + ", " + std::to_string(r.yOff) + " of " +
               std::to_string(r.xSize) + " x " + std::to_string(r.ySize) + " does not lie in the image of " +
               std::to_string(facts.width) + " x " + std::to_string(facts.height);
    if (r.bufXSize < 1 || r.bufYSize < 1) return "the buffer has no samples";
    if (r.mode == 1 && (r.bufXSize != r.xSize || r.bufYSize != r.ySize))
        return "writing does not resample: the buffer must have the size of the window";
    for (int i = 0; i < r.channels; ++i)
        if (r.channelList[i] < 1 || r.channelList[i] > facts.channels)
            return "there is no channel " + std::to_string(r.channelList[i]);
    return {};
}

std::string move(HostFile& file, const Request& r) {
    std::string why = whyBad(r, file.raster->facts());
    if (!why.empty()) return why;
    Transfer transfer{r.xOff, r.yOff, r.xSize, r.ySize, r.bufXSize, r.bufYSize, {}, {}};
    transfer.channels.assign(r.channelList, r.channelList + r.channels);
    if (r.mode == 0) return file.raster->read(transfer, r.buffer);
    if (!file.writable) return "the file was opened for reading only";
    if (file.rasterBroken) return "an earlier transfer failed, so nothing more is written to this image";
    for (const int channel : transfer.channels) {
        const auto& noData = file.store->georeference().noData;
        const auto found = noData.find(channel);
        transfer.missing.push_back(found != noData.end() ? static_cast<float>(found->second) : 0.0F);
    }
    return file.raster->write(transfer, r.buffer);
}

void fillWithNaN(const Request& r) {
    if (r.mode != 0 || r.buffer == nullptr || r.channels < 1 || r.bufXSize < 1 || r.bufYSize < 1) return;
    const std::size_t samples = static_cast<std::size_t>(r.bufXSize) * static_cast<std::size_t>(r.bufYSize);
    std::fill_n(r.buffer, samples * static_cast<std::size_t>(r.channels), std::numeric_limits<float>::quiet_NaN());
}

bool transferred(HostFile* fp, const Request& r) {
    constexpr const char* kCaller = "GDBRealChanIOLow ()";
    if (factsOf(fp, kCaller) == nullptr) return false;
    std::string why;
    try {
        why = move(*fp, r);
    } catch (const std::bad_alloc&) {
        why = "out of memory";
    } catch (const std::exception& e) {
        why = e.what();
    }
    if (why.empty()) return true;
    fp->rasterBroken = true;
    reportFailure(std::string(kCaller) + ": " + fp->name + ": " + why);
    return false;
}

// ---- windows and channels of tasks ----

std::map<std::string, Window>& taskWindows() {
    static std::map<std::string, Window> windows;
    return windows;
}

void checkWindow(HostFile* fp, const char* szParam, int* panWindow) {
    constexpr const char* kCaller = "CheckWin ()";
    const RasterFacts* facts = factsOf(fp, kCaller);
    if (facts == nullptr || panWindow == nullptr) return;
    Window window = {0, 0, facts->width, facts->height};
    const auto set = taskWindows().find(szParam != nullptr ? szParam : "");
    if (set != taskWindows().end()) {
        const Window& asked = set->second;
        if (inside(*facts, asked[0], asked[1], asked[2], asked[3]))
            window = asked;
        else
            reportFailure(std::string(kCaller) + ": " + set->first + ": the window " + std::to_string(asked[0]) + ", " +
                          std::to_string(asked[1]) + " of " + std::to_string(asked[2]) + " x " +
                          std::to_string(asked[3]) + " does not lie in " + fp->name + "; the whole image is taken");
    }
    std::copy(window.begin(), window.end(), panWindow);
}

void checkChannels(HostFile* fp, const char* szParam, const int* panChans, int nNumChans) {
    constexpr const char* kCaller = "CheckChan ()";
    const RasterFacts* facts = factsOf(fp, kCaller);
    if (facts == nullptr) return;
    const std::string start = std::string(kCaller) + ": " + (szParam != nullptr ? szParam : "") + ": ";
    if (panChans == nullptr || nNumChans < 1) return reportFailure(start + "no channels given");
    for (int i = 0; i < nNumChans; ++i)
        if (panChans[i] < 1 || panChans[i] > facts->channels)
            return reportFailure(start + fp->name + " has no channel " + std::to_string(panChans[i]));
}

}  // namespace

bool inside(const RasterFacts& facts, int x, int y, int width, int height) {
    return x >= 0 && y >= 0 && width >= 1 && height >= 1 && x <= facts.width - width && y <= facts.height - height;
}

}  // namespace kshost

using kshost::RasterFacts;

int GDBChanNum(HostFile* fp) {
    return kshost::countOf(fp, "GDBChanNum ()", [](const RasterFacts& facts) { return facts.channels; });
}

int GDBChanXSize(HostFile* fp) {
    return kshost::countOf(fp, "GDBChanXSize ()", [](const RasterFacts& facts) { return facts.width; });
}

int GDBChanYSize(HostFile* fp) {
    return kshost::countOf(fp, "GDBChanYSize ()", [](const RasterFacts& facts) { return facts.height; });
}

int GDBChanType(HostFile* fp, int nChan) {
    const int type = kshost::channelType(fp, nChan);
    if (type == 0) kshost::abandonIfTrapped();
    return type;
}

int GDBRealChanIOLow(HostFile* fp, int nMode, int nXOff, int nYOff, int nXSize, int nYSize, float* pafBuffer,
                     int nBufXSize, int nBufYSize, int nNumChans, const int* panChans) {
    const kshost::Request request{nMode,     nXOff,     nYOff,     nXSize,    nYSize,
                                  pafBuffer, nBufXSize, nBufYSize, nNumChans, panChans};
    const bool done = kshost::guarded("GDBRealChanIOLow ()", false, [&] { return kshost::transferred(fp, request); });
    if (!done) {
        kshost::fillWithNaN(request);
        kshost::abandonIfTrapped();
    }
    return done ? 1 : 0;
}

void CheckWin(HostFile* fp, const char* szParam, int anWindow[4]) {
    kshost::guarded("CheckWin ()", 0, [=] { return kshost::checkWindow(fp, szParam, anWindow), 0; });
}

void CheckChan(HostFile* fp, const char* szParam, const int* panChans, int nNumChans) {
    kshost::guarded("CheckChan ()", 0, [=] { return kshost::checkChannels(fp, szParam, panChans, nNumChans), 0; });
}

void KSHostSetWindow(const char* szParam, const int* panWindow) {
    kshost::guarded("KSHostSetWindow ()", 0, [=] {
        if (szParam == nullptr) return 0;
        if (panWindow == nullptr)
            kshost::taskWindows().erase(szParam);
        else
            std::copy_n(panWindow, 4, kshost::taskWindows()[szParam].begin());
        return 0;
    });
}
