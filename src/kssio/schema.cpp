// Schemas: which fields a spectra layer has, or is to have.
#include <kslib/kssio.h>

#include <kslib/ksdatset.h>
#include <kslib/ksld.h>

#include <algorithm>

#include "support/heap.hpp"
#include "support/report.hpp"
#include "support/spectra.hpp"
#include "support/wavelength.hpp"

using namespace ks;

namespace {

// ---- of a sensor ----

constexpr const char* kProfileLabel = "KSSTSchemaFromProfile ()";

int checkProfile(const KSSensor* sensor, const int* selected, int count) {
    constexpr const char* label = kProfileLabel;
    if (sensor == nullptr) return KS_FAIL("%s: pSensor == NULL.\n", label);
    if (sensor->pBandResp == nullptr) return KS_FAIL("%s: pSensor->pBandResp == NULL.\n", label);
    if (selected == nullptr && count >= 1) return KS_FAIL("%s: panSelBands == NULL.\n", label);
    return kOk;
}

int checkBand(const KSSensor& sensor, int band) {
    constexpr const char* label = kProfileLabel;
    if (band < 0 || band >= sensor.nNumBands) {
        return KS_FAIL("%s: selected band %d is outside of valid range\n", label, band);
    }
    if (sensor.pBandResp[band].eRespType == KS_RT_UNKNOWN) {
        return KS_FAIL("%s: pSensor->pBandResp[%d].eRespType == KS_RT_UNKNOWN\n", label, band);
    }
    return kOk;
}

int fillFromProfile(KSSTSchema& schema, const KSSensor& sensor, const int* selected, int count, bool isFull) {
    constexpr const char* label = kProfileLabel;
    const int metadata = isFull ? KS_FLD_ROI : KS_FLD_QUANTITY;
    schema.pMetaFlds = allocateArray<KSSTFld>(std::int64_t{metadata}).release();
    if (schema.pMetaFlds == nullptr) return KS_FAIL("%s: pRetVal->pMetaFlds == NULL, error in HMalloc ().\n", label);
    schema.nNumMetaFlds = metadata;
    for (int i = 0; i < metadata; ++i) schema.pMetaFlds[i] = {i + 1, 0.0F, i, -1};

    schema.pMeasFld = allocateArray<KSSTFld>(std::int64_t{count}).release();
    if (schema.pMeasFld == nullptr) return KS_FAIL("%s: pRetVal->pMeasFld == NULL, error in HMalloc ().\n", label);
    schema.nNumMeasFlds = count;
    for (int i = 0; i < count; ++i) {
        if (checkBand(sensor, selected[i]) != kOk) return kFailed;
        const int quality = isFull ? metadata + count + i : -1;
        schema.pMeasFld[i] = {KS_FLD_MEAS, sensor.pBandResp[selected[i]].fCentre, metadata + i, quality};
    }
    if (!isFull) return kOk;

    schema.pQualFld = allocateArray<KSSTFld>(std::int64_t{count}).release();
    if (schema.pQualFld == nullptr) return KS_FAIL("%s: pRetVal->pQualFld == NULL, error in HMalloc ().\n", label);
    schema.nNumQualFlds = count;
    for (int i = 0; i < count; ++i) {
        const KSSTFld& measurement = schema.pMeasFld[i];
        schema.pQualFld[i] = {KS_FLD_QUAL, measurement.fWlen, measurement.nQualFldInd, -1};
    }
    return kOk;
}

// ---- of a layer ----

constexpr const char* kLayerLabel = "KSSTSchemaFromLayer ()";

int allocateFields(KSSTSchema& schema) {
    constexpr const char* label = kLayerLabel;
    schema.pMetaFlds = allocateZeroedArray<KSSTFld>(schema.nNumMetaFlds).release();
    if (schema.pMetaFlds == nullptr) {
        return KS_FAIL("%s: pRetVal->pMetaFlds == NULL,\nHMalloc () failed.\n.", label);
    }
    schema.pMeasFld = allocateZeroedArray<KSSTFld>(schema.nNumMeasFlds).release();
    if (schema.pMeasFld == nullptr) {
        return KS_FAIL("%s: pRetVal->pMeasFlds == NULL,\nHMalloc () failed.\n", label);
    }
    if (schema.nNumQualFlds == 0) return kOk;
    schema.pQualFld = allocateZeroedArray<KSSTFld>(schema.nNumQualFlds).release();
    if (schema.pQualFld == nullptr) return KS_FAIL("%s: pQualFlds == NULL,\nHMalloc () failed.\n", label);
    return kOk;
}

/// Fields of one kind, filled in layer order; a layer that grew since it was counted cannot overfill them.
struct FieldList {
    KSSTFld* fields;
    int room;
    int count = 0;

    void add(const KSSTFld& field) {
        if (count < room) fields[count] = field;
        ++count;
    }
};

enum class Filling { complete, mismatched, failed };

Filling fillFromLayer(KSSTSchema& schema, HostLayer* layer) {
    constexpr const char* label = kLayerLabel;
    FieldList metadata = {schema.pMetaFlds, schema.nNumMetaFlds};
    FieldList measurements = {schema.pMeasFld, schema.nNumMeasFlds};
    FieldList qualities = {schema.pQualFld, schema.nNumQualFlds};
    const int fields = GDBGetNumFields(layer);
    for (int i = 0; i < fields; ++i) {
        KSSTFld field;
        if (_EvalSTFldHdr(layer, i, &field) != kOk) return Filling::failed;
        if (field.eFldID == KS_FLD_MEAS) {
            measurements.add(field);
        } else if (field.eFldID == KS_FLD_QUAL) {
            qualities.add(field);
        } else if (field.eFldID != KS_FLD_UNKNOWN) {
            metadata.add(field);
        }
    }
    schema.nNumMetaFlds = std::min(metadata.count, metadata.room);
    schema.nNumMeasFlds = std::min(measurements.count, measurements.room);
    schema.nNumQualFlds = std::min(qualities.count, qualities.room);
    if (metadata.count != metadata.room) {
        return KS_FAIL("%s: nMetaInd != pRetVal->nNumMetaFlds.\n", label), Filling::mismatched;
    }
    if (measurements.count != measurements.room) {
        return KS_FAIL("%s: nMeasInd != pRetVal->nNumMeasFlds.\n", label), Filling::mismatched;
    }
    return Filling::complete;
}

int compareFields(const void* first, const void* second) {
    return KSWlenComp(static_cast<const KSSTFld*>(first)->fWlen, static_cast<const KSSTFld*>(second)->fWlen);
}

void sortByWavelength(KSSTFld* fields, int count) {
    ORV_qsort(fields, static_cast<size_t>(count), sizeof(KSSTFld), compareFields);
}

/// How many fields come before the first one that lies beyond the range of such libraries.
int countUpToLimit(const KSSTFld* fields, int count) {
    constexpr float kLongest = 3000.0F;
    const auto isBeyond = [](const KSSTFld& field) { return field.fWlen > kLongest; };
    return static_cast<int>(std::find_if(fields, fields + count, isBeyond) - fields);
}

void linkQualities(KSSTSchema& schema) {
    const KSSTFld* const end = schema.pQualFld + schema.nNumQualFlds;
    const auto isBelow = [](const KSSTFld& field, const KSSTFld& other) { return compareFields(&field, &other) < 0; };
    for (int i = 0; i < schema.nNumMeasFlds; ++i) {
        KSSTFld& measurement = schema.pMeasFld[i];
        const KSSTFld* quality = std::lower_bound<const KSSTFld*>(schema.pQualFld, end, measurement, isBelow);
        const bool isFound = quality != end && compareFields(quality, &measurement) == 0;
        measurement.nQualFldInd = isFound ? quality->nFldInd : -1;
    }
}

void arrange(KSSTSchema& schema, HostLayer* layer) {
    constexpr int kSpectralLibrary = 29;
    sortByWavelength(schema.pMeasFld, schema.nNumMeasFlds);
    if (GDBLayer2Type(layer) == kSpectralLibrary) {
        schema.nNumMeasFlds = countUpToLimit(schema.pMeasFld, schema.nNumMeasFlds);
        schema.nNumQualFlds = countUpToLimit(schema.pQualFld, schema.nNumQualFlds);
    }
    if (schema.nNumQualFlds > 0) sortByWavelength(schema.pQualFld, schema.nNumQualFlds);
    linkQualities(schema);
}

}  // namespace

KSSTSchema* KSSTSchemaFromProfile(const KSSensor* pSensor, const int* panSelBands, int nNumSelBands, int bFullSchema) {
    if (checkProfile(pSensor, panSelBands, nNumSelBands) != kOk) return nullptr;
    Schema schema(allocateZeroed<KSSTSchema>().release());
    if (!schema) {
        KS_FAIL("%s: pRetVal == NULL, error in HMalloc ().\n", kProfileLabel);
        return nullptr;
    }
    const bool isFilled = fillFromProfile(*schema, *pSensor, panSelBands, nNumSelBands, bFullSchema != 0) == kOk;
    return isFilled ? schema.release() : nullptr;
}

KSSTSchema* KSSTSchemaFromLayer(HostLayer* hLayer) {
    constexpr const char* label = kLayerLabel;
    if (hLayer == nullptr) return KS_FAIL("%s: hLayer == NULL.\n", label), nullptr;
    if (GDBGetNumFields(hLayer) == 0) return KS_FAIL("%s: nNumFields == 0.\n", label), nullptr;
    int metadata = 0;
    int measurements = 0;
    int qualities = 0;
    if (_CountFields(hLayer, &metadata, &measurements, &qualities) != kOk) {
        return KS_FAIL("%s: _CountFields () failed\n", label), nullptr;
    }
    Schema schema(allocateZeroed<KSSTSchema>().release());
    if (!schema) return KS_FAIL("%s: pRetVal == NULL,HMalloc () failed", label), nullptr;
    schema->nNumMetaFlds = metadata;
    schema->nNumMeasFlds = measurements;
    schema->nNumQualFlds = qualities;
    if (allocateFields(*schema) != kOk) return nullptr;
    const Filling filling = fillFromLayer(*schema, hLayer);
    if (filling == Filling::failed) return nullptr;
    if (filling == Filling::complete) arrange(*schema, hLayer);
    return schema.release();
}

void KSFreeSTSchema(KSSTSchema* pSTSchema) {
    if (pSTSchema == nullptr) return;
    freeAndClear(pSTSchema->pMetaFlds);
    freeAndClear(pSTSchema->pMeasFld);
    freeAndClear(pSTSchema->pQualFld);
    std::free(pSTSchema);
}

int KSSimilarSTSchema(const KSSTSchema* pSTSchema1, const KSSTSchema* pSTSchema2) {
    if (pSTSchema1 == nullptr || pSTSchema2 == nullptr) return 0;
    const bool isFirstShorter = pSTSchema1->nNumMeasFlds <= pSTSchema2->nNumMeasFlds;
    const KSSTSchema& shorter = isFirstShorter ? *pSTSchema1 : *pSTSchema2;
    const KSSTSchema& longer = isFirstShorter ? *pSTSchema2 : *pSTSchema1;
    int cursor = 0;
    for (int i = 0; i < shorter.nNumMeasFlds; ++i) {
        const std::int64_t wanted = thousandths(shorter.pMeasFld[i].fWlen);
        while (cursor < longer.nNumMeasFlds && thousandths(longer.pMeasFld[cursor].fWlen) != wanted) ++cursor;
        if (cursor == longer.nNumMeasFlds) return 0;
    }
    return 1;
}
