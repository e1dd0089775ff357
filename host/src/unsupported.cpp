// Segments and vector layers, which this host does not keep yet: every operation says so once and fails, so that a
// caller learns the reason and loses nothing.
#include <string>

#include "kshost.h"
#include "report.hpp"

namespace kshost {
namespace {

template <class R>
R refuse(const char* what, const char* kind, R failure) {
    guarded(what, 0, [=] {
        reportFailure(std::string(what) + ": this host does not keep " + kind + " yet.");
        return 0;
    });
    abandonIfTrapped();
    return failure;
}

constexpr const char* kSegments = "data segments";
constexpr const char* kLayers = "vector layers";

}  // namespace
}  // namespace kshost

using kshost::kLayers;
using kshost::kSegments;
using kshost::refuse;

int IDBSegCreate(HostFile*, const char*, const char*, int, int64_t) { return refuse("IDBSegCreate ()", kSegments, 0); }

int IDBSegInfoIO(HostFile*, int, int, char* pchStatus, int*, void*, void*, void*) {
    if (pchStatus != nullptr) *pchStatus = 'E';
    return refuse("IDBSegInfoIO ()", kSegments, 0);
}

int GDBSegNext(HostFile*, int, int) { return refuse("GDBSegNext ()", kSegments, 0); }

int IDBMultiArrayIO(HostFile*, int, int, int, const int64_t*, int, const int64_t*, const int64_t*, const int64_t*,
                    const int64_t*, int64_t, void*, int64_t, int64_t* pnMoved) {
    if (pnMoved != nullptr) *pnMoved = 0;
    return refuse("IDBMultiArrayIO ()", kSegments, 0);
}

HostLayer* GDBCreateLayer(HostFile*, const char*, const char*, const char*) {
    return refuse<HostLayer*>("GDBCreateLayer ()", kLayers, nullptr);
}

HostLayer* GDBGetLayer(HostFile*, int) { return refuse<HostLayer*>("GDBGetLayer ()", kLayers, nullptr); }

int GDBLayer2Type(HostLayer*) { return refuse("GDBLayer2Type ()", kLayers, 0); }

int GDBGetNumFields(HostLayer*) { return refuse("GDBGetNumFields ()", kLayers, 0); }

const char* GDBGetFieldName(HostLayer*, int) { return refuse<const char*>("GDBGetFieldName ()", kLayers, nullptr); }

int GDBDefineNewField(HostLayer*, const char*, int) { return refuse("GDBDefineNewField ()", kLayers, -1); }

char* GDBGenFieldFormat(int, int, int, int) { return refuse<char*>("GDBGenFieldFormat ()", kLayers, nullptr); }

int GDBSetFieldFormat(HostLayer*, int, const char*) { return refuse("GDBSetFieldFormat ()", kLayers, 0); }

int GDBCreateShape(HostLayer*, int) { return refuse("GDBCreateShape ()", kLayers, -1); }

int GDBSetValue(HostLayer*, int, int, double) { return refuse("GDBSetValue ()", kLayers, 0); }

int GDBSetValueString(HostLayer*, int, int, const char*) { return refuse("GDBSetValueString ()", kLayers, 0); }

double GDBGetValue(HostLayer*, int, int) { return refuse("GDBGetValue ()", kLayers, 0.0); }

char* GDBGetValueString(HostLayer*, int, int) { return refuse<char*>("GDBGetValueString ()", kLayers, nullptr); }

int GDBVectorCopy(HostFile*, int, HostFile*, int, int, int, int) { return refuse("GDBVectorCopy ()", kLayers, 0); }

int GDBGetFirst(HostLayer*) { return refuse("GDBGetFirst ()", kLayers, -1); }

int GDBGetNext(HostLayer*, int) { return refuse("GDBGetNext ()", kLayers, -1); }
