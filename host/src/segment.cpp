// Segments of a file: its directory, and data segments with their transfers of multi-dimensional arrays.
#include <limits>
#include <optional>
#include <string>

#include "datastore.hpp"
#include "hostfile.hpp"
#include "report.hpp"

namespace kshost {
namespace {

constexpr int kRead = 0;
constexpr int kWrite = 1;

int refused(const char* caller, const HostFile& file, const std::string& why) {
    reportFailure(std::string(caller) + ": " + file.name + ": " + why + ".");
    return 0;
}

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

/// The number of a new data segment, or 0 after a report.
int create(HostFile* fp, const char* name, const char* description, int type, std::int64_t blocks) {
    constexpr const char* kCaller = "IDBSegCreate ()";
    HostFile* file = live(fp, kCaller);
    if (file == nullptr || !mayWrite(*file, kCaller)) return 0;
    if (type < 1 || type == kLayerSegment)
        return refused(kCaller, *file, "a data segment cannot be of type " + std::to_string(type));
    if (blocks < 0 || blocks > std::numeric_limits<std::int64_t>::max() / kBlockBytes)
        return refused(kCaller, *file, "a segment cannot have " + std::to_string(blocks) + " blocks");
    if (!commitFile(*file)) return 0;
    std::string why;
    const int number = file->store->addDataSegment({type, orEmpty(name), orEmpty(description), 0}, blocks, why);
    return number > 0 ? number : refused(kCaller, *file, "the segment cannot be made: " + why);
}

/// The segment of a type that follows another; -1 at the end, -2 after a report.
int segmentAfter(HostFile* fp, int type, int previous) {
    const HostFile* file = live(fp, "GDBSegNext ()");
    if (file == nullptr) return -2;
    const Segments all = file->store->segments();
    for (auto next = all.upper_bound(previous); next != all.end(); ++next)
        if (next->second.type == type) return next->first;
    return -1;
}

bool describe(HostFile* fp, int number, int mode, char& status, int& type) {
    constexpr const char* kCaller = "IDBSegInfoIO ()";
    const HostFile* file = live(fp, kCaller);
    if (file == nullptr) return false;
    if (mode != kRead) return refused(kCaller, *file, "the description of a segment is only read here") != 0;
    const Segments all = file->store->segments();
    const auto found = all.find(number);
    status = found != all.end() ? 'A' : 'E';
    type = found != all.end() ? found->second.type : 0;
    return true;
}

std::string whyNoTransfer(HostFile& file, int mode, int segment, const void* buffer) {
    if (mode != kRead && mode != kWrite) return "the mode " + std::to_string(mode) + " is neither 0 nor 1";
    if (buffer == nullptr) return "no buffer given";
    const Segments all = file.store->segments();
    const auto found = all.find(segment);
    if (found == all.end()) return "there is no segment " + std::to_string(segment);
    if (found->second.type == kLayerSegment) return "segment " + std::to_string(segment) + " is a layer";
    return {};
}

/// The bytes moved, or nothing after a report.
std::optional<std::int64_t> transfer(HostFile* fp, int mode, int segment, const ArrayTransfer& asked, void* buffer) {
    constexpr const char* kCaller = "IDBMultiArrayIO ()";
    HostFile* file = live(fp, kCaller);
    if (file == nullptr || (mode == kWrite && !mayWrite(*file, kCaller))) return std::nullopt;
    std::string why = whyNoTransfer(*file, mode, segment, buffer);
    const auto rectangle = why.empty() ? HyperRectangle::of(asked, why) : std::nullopt;
    if (rectangle && (mode == kRead || commitFile(*file))) {
        auto* bytes = static_cast<unsigned char*>(buffer);
        why = mode == kRead ? file->store->readData(segment, *rectangle, bytes)
                            : file->store->writeData(segment, *rectangle, bytes);
        if (why.empty()) return rectangle->bytes();
    }
    if (!why.empty()) refused(kCaller, *file, why);
    return std::nullopt;
}

}  // namespace
}  // namespace kshost

int IDBSegCreate(HostFile* fp, const char* szName, const char* szDesc, int nType, int64_t nBlocks) {
    const int number =
        kshost::guarded("IDBSegCreate ()", 0, [=] { return kshost::create(fp, szName, szDesc, nType, nBlocks); });
    if (number == 0) kshost::abandonIfTrapped();
    return number;
}

int IDBSegInfoIO(HostFile* fp, int nSegment, int nMode, char* pchStatus, int* pnType, void* /*p0*/, void* /*p1*/,
                 void* /*p2*/) {
    char status = 'E';
    int type = 0;
    const bool done =
        kshost::guarded("IDBSegInfoIO ()", false, [&] { return kshost::describe(fp, nSegment, nMode, status, type); });
    if (pchStatus != nullptr) *pchStatus = status;
    if (pnType != nullptr) *pnType = type;
    if (!done) kshost::abandonIfTrapped();
    return done ? 1 : 0;
}

int GDBSegNext(HostFile* fp, int nType, int nPrevious) {
    const int next = kshost::guarded("GDBSegNext ()", -2, [=] { return kshost::segmentAfter(fp, nType, nPrevious); });
    if (next == -2) kshost::abandonIfTrapped();
    return next >= 0 ? next : -1;
}

int IDBMultiArrayIO(HostFile* fp, int nMode, int nSegment, int nDimensions, const int64_t* panSizes, int nElementSize,
                    const int64_t* panOffset, const int64_t* panCount, const int64_t* panOpt1, const int64_t* panOpt2,
                    int64_t nPosition, void* pBuffer, int64_t nBytes, int64_t* pnMoved) {
    const kshost::ArrayTransfer asked = {nDimensions, panSizes, nElementSize, panOffset, panCount,
                                         panOpt1,     panOpt2,  nPosition,    nBytes};
    const std::optional<std::int64_t> moved = kshost::guarded<std::optional<std::int64_t>>(
        "IDBMultiArrayIO ()", std::nullopt, [&] { return kshost::transfer(fp, nMode, nSegment, asked, pBuffer); });
    if (pnMoved != nullptr) *pnMoved = moved.value_or(0);
    if (!moved) kshost::abandonIfTrapped();
    return moved ? 1 : 0;
}
