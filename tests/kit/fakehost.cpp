// The fake host's state, its files and their channels.
#include "fakehost.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "print.hpp"

namespace kit {

std::ostream& operator<<(std::ostream& out, const Call& call) {
    return out << call.name << "(" << call.arguments << ")";
}

bool Report::operator==(const Report& other) const {
    return debug == other.debug && code == other.code && severity == other.severity && format == other.format &&
           label == other.label && text == other.text;
}

std::ostream& operator<<(std::ostream& out, const Report& report) {
    if (report.debug) {
        out << "debug";
    } else {
        out << report.code << "/" << report.severity;
    }
    return out << " [" << report.format << "] \"" << report.text << "\"";
}

float& FakeFile::sample(int channel, int x, int y) {
    return channels.at(static_cast<std::size_t>(channel - 1)).samples.at(static_cast<std::size_t>(y * width + x));
}

void FakeFile::set(int level, int number, const std::string& key, const std::string& value) {
    std::vector<std::string>& list = lists[{level, number}];
    const std::string start = key + "=";
    for (std::string& entry : list) {
        if (entry.compare(0, start.size(), start) == 0) {
            entry = start + value;
            return;
        }
    }
    list.push_back(start + value);
}

std::string FakeFile::get(int level, int number, const std::string& key) const {
    const auto found = lists.find({level, number});
    if (found != lists.end()) {
        const std::string start = key + "=";
        for (const std::string& entry : found->second) {
            if (entry.compare(0, start.size(), start) == 0) return entry.substr(start.size());
        }
    }
    return "(absent)";
}

namespace {

constexpr int kMemoryType = 60;

std::unique_ptr<FakeHost> theHost = std::make_unique<FakeHost>();

float storedValue(float value, int type) {
    const auto clamped = [value](float low, float high) { return std::round(std::clamp(value, low, high)); };
    switch (type) {
        case 1:
            return std::isnan(value) ? 0.0F : clamped(0.0F, 255.0F);
        case 2:
            return std::isnan(value) ? 0.0F : clamped(-32768.0F, 32767.0F);
        case 3:
            return std::isnan(value) ? 0.0F : clamped(0.0F, 65535.0F);
        default:
            return value;
    }
}

}  // namespace

FakeHost& host() { return *theHost; }

void resetHost() { theHost = std::make_unique<FakeHost>(); }

void abandonIfTrapped() {
    std::vector<std::unique_ptr<Trap>>& traps = host().traps();
    if (traps.empty()) return;
    jmp_buf target;
    std::memcpy(&target, &traps.back()->buffer, sizeof target);
    traps.pop_back();
    longjmp(target, 1);
}

FakeFile& FakeHost::addFile(const std::string& name, int width, int height, const std::vector<int>& channelTypes) {
    FakeFile& file = files_[name];
    file.name = name;
    file.width = width;
    file.height = height;
    for (const int type : channelTypes) {
        FakeChannel channel;
        channel.type = type;
        channel.samples.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
        file.channels.push_back(channel);
    }
    return file;
}

FakeFile& FakeHost::file(const std::string& name) { return files_.at(name); }

HostFile* FakeHost::open(const std::string& name, bool writable) { return addHandle(file(name), writable); }

HostFile* FakeHost::openMemoryFile() {
    FakeFile& file = addFile("memory " + std::to_string(++memoryFiles_), 0, 0, {});
    file.type = kMemoryType;
    HostFile* fp = addHandle(file, true);
    fp->name.clear();
    return fp;
}

HostFile* FakeHost::openChannel(const std::string& name, int channel) {
    HostFile* fp = open(name);
    fp->name += ":" + std::to_string(channel);
    return fp;
}

HostFile* FakeHost::addHandle(FakeFile& file, bool writable) {
    HostFile* fp = new HostFile{&file, writable, 1, file.name};
    handles_.insert(fp);
    return fp;
}

void FakeHost::dropReference(HostFile* fp) {
    if (!isLive(fp)) {
        misuse.push_back("GDBClose of a dead handle");
        return;
    }
    if (--fp->references > 0) return;
    if (fp->file->type == kMemoryType) {
        for (auto& layer : fp->file->layers) deadLayers_.push_back(std::move(layer.second));
        files_.erase(fp->file->name);
    }
    handles_.erase(fp);
    delete fp;
}

int FakeHost::references() const {
    int total = 0;
    for (const HostFile* fp : handles_) total += fp->references;
    return total;
}

void FakeHost::failCall(const std::string& name, int nth) { failures_.insert({name, {nth, false}}); }
void FakeHost::jumpFromCall(const std::string& name, int nth) { failures_.insert({name, {nth, true}}); }

std::vector<std::string> FakeHost::callNames() const {
    std::vector<std::string> names;
    for (const Call& call : calls) names.push_back(call.name);
    return names;
}

int FakeHost::count(const std::string& name) const {
    return static_cast<int>(
        std::count_if(calls.begin(), calls.end(), [&](const Call& call) { return call.name == name; }));
}

std::vector<std::string> FakeHost::callsOf(const std::set<std::string>& names) const {
    std::vector<std::string> found;
    for (const Call& call : calls) {
        if (names.count(call.name) != 0) found.push_back(call.name + "(" + call.arguments + ")");
    }
    return found;
}

std::string FakeHost::argumentsOf(const std::string& name) const {
    if (count(name) != 1) return "(" + std::to_string(count(name)) + " calls)";
    return std::find_if(calls.begin(), calls.end(), [&](const Call& call) { return call.name == name; })->arguments;
}

void FakeHost::forget() {
    calls.clear();
    reports.clear();
}

bool FakeHost::enter(const char* name, const std::string& arguments) {
    calls.push_back({name, arguments});
    if (whenCalled) whenCalled(Call{name, arguments});
    bool proceed = true;
    const auto range = failures_.equal_range(name);
    for (auto failure = range.first; failure != range.second;) {
        if (--failure->second.nth > 0) {
            ++failure;
            continue;
        }
        if (failure->second.mustJump && traps_.empty()) misuse.push_back(std::string(name) + " called without a trap");
        failure = failures_.erase(failure);
        proceed = false;
    }
    return proceed;
}

std::string FakeHost::nameOf(HostFile* fp) const {
    if (fp == nullptr) return "null";
    if (!isLive(fp)) return "dead";
    return fp->name.empty() ? fp->file->name : fp->name;
}

FakeFile* FakeHost::fileOf(HostFile* fp, const char* caller) {
    if (isLive(fp)) return fp->file;
    misuse.push_back(std::string(caller) + (fp == nullptr ? " of null" : " of a dead handle"));
    return nullptr;
}

FakeChannel* FakeHost::channelOf(HostFile* fp, int channel, const char* caller) {
    FakeFile* file = fileOf(fp, caller);
    if (file == nullptr) return nullptr;
    if (channel >= 1 && channel <= static_cast<int>(file->channels.size())) {
        return &file->channels[static_cast<std::size_t>(channel - 1)];
    }
    misuse.push_back(std::string(caller) + " of channel " + std::to_string(channel));
    return nullptr;
}

namespace {

void moveSamples(FakeFile& file, int mode, int xOff, int yOff, int width, int height, float* buffer, int bufWidth,
                 int bufHeight, int count, const int* channels) {
    std::size_t at = 0;
    for (int y = 0; y < bufHeight; ++y) {
        const int line = yOff + static_cast<int>(std::int64_t{y} * height / bufHeight);
        for (int x = 0; x < bufWidth; ++x) {
            const int pixel = xOff + static_cast<int>(std::int64_t{x} * width / bufWidth);
            for (int j = 0; j < count; ++j, ++at) {
                float& sample = file.sample(channels[j], pixel, line);
                if (mode == 0) {
                    buffer[at] = sample;
                } else {
                    sample = storedValue(buffer[at], file.channels[static_cast<std::size_t>(channels[j] - 1)].type);
                }
            }
        }
    }
}

bool transferFits(const FakeFile& file, bool writable, int mode, int xOff, int yOff, int width, int height,
                  int bufWidth, int bufHeight, int count, const int* channels) {
    const bool inside = xOff >= 0 && yOff >= 0 && width >= 1 && height >= 1 && bufWidth >= 1 && bufHeight >= 1 &&
                        std::int64_t{xOff} + width <= file.width && std::int64_t{yOff} + height <= file.height;
    const bool way = mode == 0 || (mode == 1 && writable && bufWidth == width && bufHeight == height);
    return inside && way && count >= 1 && std::all_of(channels, channels + count, [&](int channel) {
               return channel >= 1 && channel <= static_cast<int>(file.channels.size());
           });
}

HostFile* createImage(const char* name, int width, int height, const int* counts) {
    if (host().exists(name) || width < 1 || height < 1) return nullptr;
    std::vector<int> types;
    for (int type = 1; type <= 4; ++type) types.insert(types.end(), static_cast<std::size_t>(counts[type - 1]), type);
    if (types.empty()) return nullptr;
    return host().addHandle(host().addFile(name, width, height, types), true);
}

}  // namespace

}  // namespace kit

using namespace kit;

extern "C" {

void ImageRegister(void) { host().enter("ImageRegister", ""); }

int DKCheck(const char* szFileName) {
    if (!host().enter("DKCheck", arguments(szFileName))) return failing(0);
    return szFileName != nullptr && host().exists(szFileName) ? 1 : 0;
}

HostFile* GDBOpen(const char* szFileName, const char* szAccess) {
    if (!host().enter("GDBOpen", arguments(szFileName, szAccess))) return failing<HostFile*>(nullptr);
    if (!host().exists(szFileName)) return failing<HostFile*>(nullptr);
    return host().open(szFileName, std::strcmp(szAccess, "r+") == 0);
}

void GDBClose(HostFile* fp) {
    host().enter("GDBClose", arguments(fp));
    if (fp != nullptr) host().dropReference(fp);
}

HostFile* IDBCreate(const char* szFileName, int nXSize, int nYSize, const int anChannels[4], const char* szInterleave) {
    if (!host().enter("IDBCreate", arguments(szFileName, nXSize, nYSize, numbers(anChannels, 4), szInterleave))) {
        return failing<HostFile*>(nullptr);
    }
    HostFile* fp = createImage(szFileName, nXSize, nYSize, anChannels);
    return fp != nullptr ? fp : failing(fp);
}

HostFile* GDBCreate(int nFileType, const char* szFileName, int nXSize, int nYSize, int n0, int n1, const char* szText) {
    if (!host().enter("GDBCreate", arguments(nFileType, szFileName, nXSize, nYSize, n0, n1, szText))) {
        return failing<HostFile*>(nullptr);
    }
    if (nFileType == kMemoryType) return host().openMemoryFile();
    if (szFileName == nullptr || *szFileName == '\0' || host().exists(szFileName)) return failing<HostFile*>(nullptr);
    FakeFile& file = host().addFile(szFileName, 0, 0, {});
    file.type = nFileType;
    return host().addHandle(file, true);
}

void GDBWriteHistory(HostFile* fp, int nLevel, int nChan, const char* szText) {
    host().enter("GDBWriteHistory", arguments(fp, nLevel, nChan, szText));
    if (FakeFile* file = host().fileOf(fp, "GDBWriteHistory")) file->history.emplace_back(szText);
}

const char* fp2filename(HostFile* fp) {
    if (!host().enter("fp2filename", arguments(fp))) return failing<const char*>(nullptr);
    const FakeFile* file = host().fileOf(fp, "fp2filename");
    return file == nullptr ? nullptr : fp->name.c_str();
}

int fp2type(HostFile* fp) {
    if (!host().enter("fp2type", arguments(fp)) || fp == nullptr) return 0;
    const FakeFile* file = host().fileOf(fp, "fp2type");
    return file == nullptr ? 0 : file->type;
}

int fpValidate(HostFile* fp) {
    if (!host().enter("fpValidate", arguments(fp))) return 0;
    return host().isLive(fp) ? 1 : 0;
}

HostFile* fpReference(HostFile* fp) {
    if (!host().enter("fpReference", arguments(fp)) || fp == nullptr) return failing<HostFile*>(nullptr);
    if (host().fileOf(fp, "fpReference") == nullptr) return nullptr;
    ++fp->references;
    return fp;
}

int GDBChanNum(HostFile* fp) {
    if (!host().enter("GDBChanNum", arguments(fp))) return failing(0);
    const FakeFile* file = host().fileOf(fp, "GDBChanNum");
    return file == nullptr ? 0 : static_cast<int>(file->channels.size());
}

int GDBChanXSize(HostFile* fp) {
    if (!host().enter("GDBChanXSize", arguments(fp))) return failing(0);
    const FakeFile* file = host().fileOf(fp, "GDBChanXSize");
    return file == nullptr ? 0 : file->width;
}

int GDBChanYSize(HostFile* fp) {
    if (!host().enter("GDBChanYSize", arguments(fp))) return failing(0);
    const FakeFile* file = host().fileOf(fp, "GDBChanYSize");
    return file == nullptr ? 0 : file->height;
}

int GDBChanType(HostFile* fp, int nChan) {
    if (!host().enter("GDBChanType", arguments(fp, nChan))) return failing(0);
    const FakeChannel* channel = host().channelOf(fp, nChan, "GDBChanType");
    return channel == nullptr ? 0 : channel->type;
}

int GDBRealChanIOLow(HostFile* fp, int nMode, int nXOff, int nYOff, int nXSize, int nYSize, float* pafBuffer,
                     int nBufXSize, int nBufYSize, int nNumChans, const int* panChans) {
    const bool proceed = host().enter(
        "GDBRealChanIOLow", arguments(fp, nMode, nXOff, nYOff, nXSize, nYSize, static_cast<const void*>(pafBuffer),
                                      nBufXSize, nBufYSize, nNumChans, numbers(panChans, nNumChans)));
    FakeFile* file = host().fileOf(fp, "GDBRealChanIOLow");
    if (file == nullptr) return failing(0);
    if (!proceed) {
        const float lost = std::numeric_limits<float>::quiet_NaN();
        if (nMode == 0) std::fill_n(pafBuffer, std::int64_t{nBufXSize} * nBufYSize * nNumChans, lost);
        return failing(0);
    }
    if (!transferFits(*file, fp->writable, nMode, nXOff, nYOff, nXSize, nYSize, nBufXSize, nBufYSize, nNumChans,
                      panChans)) {
        host().misuse.emplace_back("GDBRealChanIOLow outside the image");
        return failing(0);
    }
    moveSamples(*file, nMode, nXOff, nYOff, nXSize, nYSize, pafBuffer, nBufXSize, nBufYSize, nNumChans, panChans);
    return 1;
}

int GDBChanDescIO(HostFile* fp, int nMode, int nChan, char* szText) {
    if (!host().enter("GDBChanDescIO", arguments(fp, nMode, nChan, nMode == 1 ? szText : "buffer"))) return failing(0);
    FakeChannel* channel = host().channelOf(fp, nChan, "GDBChanDescIO");
    if (channel == nullptr) return failing(0);
    constexpr std::size_t kLongest = 64;
    if (nMode == 1) {
        channel->description = std::string(szText).substr(0, kLongest);
    } else {
        std::memcpy(szText, channel->description.c_str(), channel->description.size() + 1);
    }
    return 1;
}

void CheckWin(HostFile* fp, const char* szParam, int anWindow[4]) {
    host().enter("CheckWin", arguments(fp, szParam));
    const FakeFile* file = host().fileOf(fp, "CheckWin");
    if (file == nullptr) return;
    const auto set = host().windows.find(szParam);
    const std::array<int, 4> whole = {0, 0, file->width, file->height};
    const std::array<int, 4>& window = set == host().windows.end() ? whole : set->second;
    std::copy(window.begin(), window.end(), anWindow);
}

void CheckChan(HostFile* fp, const char* szParam, const int* panChans, int nNumChans) {
    host().enter("CheckChan", arguments(fp, szParam, numbers(panChans, nNumChans)));
}

}  // extern "C"
