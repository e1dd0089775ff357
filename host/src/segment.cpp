// Segments of a file: its directory, and the data segments that this host does not keep yet.
#include <string>

#include "hostfile.hpp"
#include "report.hpp"

namespace kshost {
namespace {

/// Says once why a call cannot be done, so that a caller learns the reason and loses nothing.
int refuseDataSegments(const char* caller) {
    guarded(caller, 0, [=] {
        reportFailure(std::string(caller) + ": this host does not keep data segments yet.");
        return 0;
    });
    abandonIfTrapped();
    return 0;
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
    if (mode != 0) {
        reportFailure(std::string(kCaller) + ": the description of a segment is only read here.");
        return false;
    }
    const Segments all = file->store->segments();
    const auto found = all.find(number);
    status = found != all.end() ? 'A' : 'E';
    type = found != all.end() ? found->second.type : 0;
    return true;
}

}  // namespace
}  // namespace kshost

int IDBSegCreate(HostFile*, const char*, const char*, int, int64_t) {
    return kshost::refuseDataSegments("IDBSegCreate ()");
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

int IDBMultiArrayIO(HostFile*, int, int, int, const int64_t*, int, const int64_t*, const int64_t*, const int64_t*,
                    const int64_t*, int64_t, void*, int64_t, int64_t* pnMoved) {
    if (pnMoved != nullptr) *pnMoved = 0;
    return kshost::refuseDataSegments("IDBMultiArrayIO ()");
}
