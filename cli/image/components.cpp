#include "image/components.hpp"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "image/copymeta.hpp"

namespace kscli {
namespace {

/// What a header says of the bands and values of the source, and so not of components.
bool speaksOfSpectra(const std::string& key) {
    for (const char* start : {"ENVI:z plot", "ENVI:wavelength", "ENVI:spectra", "STATISTICS_"}) {
        if (key.compare(0, std::string(start).size(), start) == 0) return true;
    }
    return false;
}

}  // namespace

DataSet describeComponents(const DataSet& source, int count) {
    DataSet result = source.describe(std::vector<int>(static_cast<std::size_t>(count), 0));
    result.dropFirstTransforms(result->nNumRadTrans);
    for (int i = 0; i < count; ++i) {
        KSBandResp& response = result->Sensor.pBandResp[i];
        if (response.eRespType == KS_RT_CUSTOM) std::free(response.pafSamples);
        response = {};
        response.eRespType = KS_RT_UNKNOWN;
        response.fCentre = response.fFWHM = -1;
        result->Sensor.peBandQual[i] = KS_BQ_PLOT;
        result->pBandRefs[i].nID = i + 1;
    }
    return result;
}

Items fileEntriesOfComponents(const DataSet& source) {
    CopyPlan plan = planWholeCopy(source, {}, kFloat32);
    plan.level = source->nNumRadTrans;
    Items entries = fileEntriesOfCopy(source, plan);
    entries.erase(
        std::remove_if(entries.begin(), entries.end(), [](const auto& entry) { return speaksOfSpectra(entry.first); }),
        entries.end());
    return entries;
}

}  // namespace kscli
