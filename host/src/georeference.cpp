// What an application may ask about an image beyond the library's metadata: its layout, what was remarkable about its
// header, the channels for display, and its place, which it may also set and carry over to another image.
#include <ogr_spatialref.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>

#include "hostfile.hpp"
#include "kshost_app.h"
#include "rasterformats.hpp"
#include "report.hpp"

namespace kshost {
namespace {

HostFile* image(HostFile* fp, const char* caller) {
    HostFile* file = live(fp, caller);
    if (file == nullptr || file->raster != nullptr) return file;
    reportFailure(std::string(caller) + ": " + file->name + " holds no image");
    return nullptr;
}

/// An exported question with the answer 0 for a file that is not a live image.
template <class Body>
int answered(HostFile* fp, const char* caller, Body body) {
    return guarded(caller, 0, [&] {
        HostFile* file = image(fp, caller);
        return file != nullptr ? body(*file) : 0;
    });
}

/// An exported change of the place; it needs a file that is open for writing.
template <class Change>
int placed(HostFile* fp, const char* caller, Change change) {
    const int done = answered(fp, caller, [&](HostFile& file) {
        Georeference place = file.store->georeference();
        std::string why = file.writable ? change(place, file) : "the file was opened for reading only";
        if (!why.empty()) {
            reportFailure(std::string(caller) + ": " + file.name + ": " + why);
            return 0;
        }
        file.store->setGeoreference(place);
        return 1;
    });
    if (done == 0) abandonIfTrapped();
    return done;
}

std::string checkedTransform(const double* padTransform, Georeference& place) {
    if (padTransform == nullptr) return "no transform given";
    std::array<double, 6> transform{};
    for (std::size_t i = 0; i < transform.size(); ++i) {
        if (!std::isfinite(padTransform[i])) return "the transform holds a value that is not a number";
        transform[i] = padTransform[i];
    }
    place.transform = transform;
    return {};
}

/// The map of an image that holds every nXInt-th pixel and nYInt-th line from an offset on.
std::array<double, 6> windowed(const std::array<double, 6>& whole, int xOff, int yOff, int xInt, int yInt) {
    std::array<double, 6> part = whole;
    for (const std::size_t row : {std::size_t{0}, std::size_t{3}}) {
        part[row] = whole[row] + xOff * whole[row + 1] + yOff * whole[row + 2];
        part[row + 1] = xInt * whole[row + 1];
        part[row + 2] = yInt * whole[row + 2];
    }
    return part;
}

std::string copyPlace(const HostFile& source, const int* panWindow, int xInt, int yInt, Georeference& place) {
    const RasterFacts& facts = source.raster->facts();
    const std::array<int, 4> whole = {0, 0, facts.width, facts.height};
    const int* window = panWindow != nullptr ? panWindow : whole.data();
    if (!inside(facts, window[0], window[1], window[2], window[3])) return "the window does not lie in " + source.name;
    if (xInt < 1 || yInt < 1) return "the sampling intervals must be 1 or more";
    const Georeference& from = source.store->georeference();
    if (from.transform) place.transform = windowed(*from.transform, window[0], window[1], xInt, yInt);
    if (!from.wkt.empty()) place.wkt = from.wkt;
    return {};
}

/// Changes map coordinates to longitude and latitude; what lies outside the projection becomes not-a-number. Returns
/// what is wrong.
std::string toGeographic(const std::string& wkt, int count, double* x, double* y) {
    const GdalMessages messages;
    OGRSpatialReference map;
    OGRSpatialReference geographic;
    if (map.importFromWkt(wkt.c_str()) != OGRERR_NONE) return "its coordinate system is not understood";
    geographic.SetWellKnownGeogCS("WGS84");
    for (OGRSpatialReference* system : {&map, &geographic}) system->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    const std::unique_ptr<OGRCoordinateTransformation> change(OGRCreateCoordinateTransformation(&map, &geographic));
    if (change == nullptr) return messages.text("its coordinate system has no way to longitude and latitude");
    std::vector<int> success(static_cast<std::size_t>(count), 0);
    change->Transform(count, x, y, nullptr, success.data());
    for (int i = 0; i < count; ++i)
        if (success[static_cast<std::size_t>(i)] == 0) x[i] = y[i] = std::numeric_limits<double>::quiet_NaN();
    return {};
}

int geographicOf(const HostFile& file, int count, double* x, double* y) {
    const Georeference& place = file.store->georeference();
    if (!place.transform || place.wkt.empty() || count < 1 || x == nullptr || y == nullptr) return 0;
    const std::array<double, 6>& map = *place.transform;
    for (int i = 0; i < count; ++i) {
        const double column = x[i];
        const double line = y[i];
        x[i] = map[0] + column * map[1] + line * map[2];
        y[i] = map[3] + column * map[4] + line * map[5];
    }
    const std::string why = toGeographic(place.wkt, count, x, y);
    if (why.empty()) return 1;
    reportFailure("KSHostPixelsToGeographic (): " + file.name + ": " + why);
    return 0;
}

int layoutOf(HostFile* fp, KSHostLayout& layout) {
    const HostFile* found = live(fp, "KSHostGetLayout ()");
    if (found == nullptr) return 0;
    const HostFile& file = *found;
    const RasterFacts& facts = file.raster != nullptr ? file.raster->facts() : file.facts;
    layout.szFormat = facts.driver.c_str();
    layout.szInterleave = facts.interleave.c_str();
    layout.szSampleType = facts.sampleType.c_str();
    layout.bBigEndian = facts.bigEndian ? 1 : 0;
    layout.szHeader = facts.headerPath.c_str();
    layout.szSidecar = file.sidecar.c_str();
    layout.bSidecar = file.store->hasSidecar() ? 1 : 0;
    return 1;
}

}  // namespace
}  // namespace kshost

using kshost::Georeference;

int KSHostGetLayout(HostFile* fp, KSHostLayout* pLayout) {
    return kshost::guarded("KSHostGetLayout ()", 0,
                           [=] { return pLayout != nullptr ? kshost::layoutOf(fp, *pLayout) : 0; });
}

HostStringList KSHostGetRemarks(HostFile* fp) {
    return kshost::guarded<HostStringList>("KSHostGetRemarks ()", nullptr, [=]() -> HostStringList {
        const HostFile* file = kshost::live(fp, "KSHostGetRemarks ()");
        if (file == nullptr) return nullptr;
        return kshost::StringList(file->store->remarks()).toBoundary();
    });
}

HostStringList KSHostGetHistory(HostFile* fp) {
    return kshost::guarded<HostStringList>("KSHostGetHistory ()", nullptr, [=]() -> HostStringList {
        const HostFile* file = kshost::live(fp, "KSHostGetHistory ()");
        if (file == nullptr) return nullptr;
        return kshost::StringList(file->store->history()).toBoundary();
    });
}

int KSHostGetDefaultChannels(HostFile* fp, int anChannels[3]) {
    return kshost::answered(fp, "KSHostGetDefaultChannels ()", [=](const HostFile& file) {
        const std::vector<int>& channels = file.raster->facts().defaultChannels;
        if (anChannels == nullptr) return 0;
        std::copy(channels.begin(), channels.end(), anChannels);
        return static_cast<int>(channels.size());
    });
}

int KSHostGetGeoTransform(HostFile* fp, double adTransform[6]) {
    return kshost::answered(fp, "KSHostGetGeoTransform ()", [=](const HostFile& file) {
        const auto& transform = file.store->georeference().transform;
        if (!transform || adTransform == nullptr) return 0;
        std::copy(transform->begin(), transform->end(), adTransform);
        return 1;
    });
}

int KSHostSetGeoTransform(HostFile* fp, const double adTransform[6]) {
    return kshost::placed(fp, "KSHostSetGeoTransform ()", [=](Georeference& place, const HostFile&) {
        return kshost::checkedTransform(adTransform, place);
    });
}

const char* KSHostGetCoordinateSystem(HostFile* fp) {
    return kshost::guarded<const char*>("KSHostGetCoordinateSystem ()", "", [=]() -> const char* {
        const HostFile* file = kshost::image(fp, "KSHostGetCoordinateSystem ()");
        return file != nullptr ? file->store->lend(file->store->georeference().wkt) : "";
    });
}

int KSHostSetCoordinateSystem(HostFile* fp, const char* szWkt) {
    return kshost::placed(fp, "KSHostSetCoordinateSystem ()", [=](Georeference& place, const HostFile&) {
        place.wkt = szWkt != nullptr ? szWkt : "";
        return std::string();
    });
}

int KSHostPixelsToGeographic(HostFile* fp, int nCount, double* padX, double* padY) {
    return kshost::answered(fp, "KSHostPixelsToGeographic ()",
                            [=](const HostFile& file) { return kshost::geographicOf(file, nCount, padX, padY); });
}

int KSHostGetNoData(HostFile* fp, int nChan, double* pdValue) {
    return kshost::answered(fp, "KSHostGetNoData ()", [=](const HostFile& file) {
        const auto& values = file.store->georeference().noData;
        const auto found = values.find(nChan);
        if (found == values.end() || pdValue == nullptr) return 0;
        *pdValue = found->second;
        return 1;
    });
}

int KSHostSetNoData(HostFile* fp, int nChan, double dValue) {
    return kshost::placed(fp, "KSHostSetNoData ()", [=](Georeference& place, const HostFile& file) {
        if (nChan < 1 || nChan > file.raster->facts().channels) return "there is no channel " + std::to_string(nChan);
        place.noData[nChan] = dValue;
        return std::string();
    });
}

int KSHostCopyGeoreference(HostFile* fpSrc, HostFile* fpDst, const int* panWindow, int nXInt, int nYInt) {
    constexpr const char* kCaller = "KSHostCopyGeoreference ()";
    return kshost::placed(fpDst, kCaller, [=](Georeference& place, const HostFile&) {
        const HostFile* source = kshost::image(fpSrc, kCaller);
        return source != nullptr ? kshost::copyPlace(*source, panWindow, nXInt, nYInt, place)
                                 : std::string("there is no source to copy from");
    });
}
