// Spectra layers: making one for a schema, finding one in a file, writing one to a file.
#include <kslib/kssio.h>

#include <kslib/ksld.h>

#include "support/heap.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr const char* kCreateLabel = "KSCreateSpectraLayer ()";

// The sizes that every file of layers is made with, which has no image.
constexpr int kNominalSize = 512;

constexpr int kNoField = -1;

enum FieldType { kRealField = 2, kTextField = 3 };

/// Adds a field at the end of the layer and notes its place.
void defineField(HostLayer* layer, const char* name, FieldType type, KSSTFld& field) {
    GDBDefineNewField(layer, name, type);
    field.nFldInd = GDBGetNumFields(layer) - 1;
}

int defineMetadataField(HostLayer* layer, KSSTFld& field) {
    constexpr const char* label = kCreateLabel;
    constexpr int kWidth = 80;
    if (field.eFldID < KS_FLD_TARGET || field.eFldID > KS_FLD_ROI) {
        return KS_FAIL("%s: Unrecognized spectrum metadata field type.\n", label);
    }
    defineField(layer, aKSFldID[field.eFldID].szName, kTextField, field);
    const Heap<char> format(GDBGenFieldFormat(kTextField, kWidth, 0, 0));
    if (!format) return KS_FAIL("%s: szFormat == NULL GDBGenFieldFormat () failed.\n", label);
    GDBSetFieldFormat(layer, field.nFldInd, format.get());
    return kOk;
}

/// A field of a wavelength that has no name, which was reported, is left out.
int defineNamedField(HostLayer* layer, char* heapName, FieldType type, KSSTFld& field) {
    const Heap<char> name(heapName);
    if (name) {
        defineField(layer, name.get(), type, field);
        return kOk;
    }
    field.nFldInd = kNoField;
    if (!(field.fWlen >= 0.0F)) return kOk;
    return KS_FAIL("%s: szName == NULL, error in HMalloc ().\n", kCreateLabel);
}

int defineFields(HostLayer* layer, KSSTSchema& schema) {
    for (int i = 0; i < schema.nNumMetaFlds; ++i) {
        if (defineMetadataField(layer, schema.pMetaFlds[i]) != kOk) return kFailed;
    }
    for (int i = 0; i < schema.nNumMeasFlds; ++i) {
        KSSTFld& field = schema.pMeasFld[i];
        if (defineNamedField(layer, _WlenToMeasFldName(field.fWlen), kRealField, field) != kOk) return kFailed;
    }
    for (int i = 0; i < schema.nNumQualFlds; ++i) {
        KSSTFld& field = schema.pQualFld[i];
        if (defineNamedField(layer, _WlenToQualFldName(field.fWlen), kTextField, field) != kOk) return kFailed;
    }
    return kOk;
}

/// Copies the layer into the new file and tells how many of its fields did not fit.
int copyInto(HostFile* file, HostLayer* layer, int& dropped) {
    if (GDBVectorCopy(layer->fp, layer->nSegment, file, 0, 0, 0, 0) <= 0) return kFailed;
    HostLayer* copy = GDBGetLayer(file, 1);
    if (copy == nullptr) return kFailed;
    dropped = GDBGetNumFields(layer) - GDBGetNumFields(copy);
    return kOk;
}

}  // namespace

HostLayer* KSCreateSpectraLayer(KSSTSchema* pSTSchema) {
    constexpr const char* label = kCreateLabel;
    constexpr int kInMemory = 60;
    if (pSTSchema == nullptr) return KS_FAIL("%s: pSTSchema == NULL.\n", label), nullptr;
    HostFile* file = GDBCreate(kInMemory, "", kNominalSize, kNominalSize, 0, 1, "");
    if (file == nullptr) {
        return KS_FAIL("%s: Failed to create the in-memory file, error in GDBCreate ().\n", label), nullptr;
    }
    HostLayer* layer = GDBCreateLayer(file, "spectra", "", "");
    if (layer == nullptr) {
        KS_FAIL("%s: Failed to create the layer, error in GDBCreateLayer ().\n", label);
        GDBClose(file);
        return nullptr;
    }
    // The layer goes with its file: no handle is given out that nobody could use.
    if (defineFields(layer, *pSTSchema) != kOk) return GDBClose(file), nullptr;
    return layer;
}

HostLayer* KSReadSpectraLayer(HostFile* fpFilI) {
    constexpr const char* label = "KSReadSpectraLayer ()";
    constexpr int kLayerSegment = 116;
    if (fpFilI == nullptr) return KS_FAIL("%s: fpFilI == NULL.\n", label), nullptr;
    for (int segment = GDBSegNext(fpFilI, kLayerSegment, 0); segment > 0;
         segment = GDBSegNext(fpFilI, kLayerSegment, segment)) {
        HostLayer* layer = GDBGetLayer(fpFilI, segment);
        if (layer == nullptr) {
            KS_FAIL("%s: Failed to read layer %d from file.\n", label, segment);
        } else if (KSIsASpectraLayer(layer) != 0) {
            return layer;
        }
    }
    return nullptr;
}

int KSWriteSpectraLayer(const char* szFilO, HostLayer* hLayer, int nFileType) {
    constexpr const char* label = "KSWriteSpectraLayer ()";
    if (szFilO == nullptr) return KS_FAIL("%s: szFilO == NULL.\n", label);
    if (hLayer == nullptr) return KS_FAIL("%s: hLayer == NULL.\n", label);
    HostFile* file = GDBCreate(nFileType, szFilO, kNominalSize, kNominalSize, 0, 1, "");
    if (file == nullptr) return KS_FAIL("%s: fpFilO == NULL, error ib GDBCreate.\n", label);
    int dropped = 0;
    const int status = copyInto(file, hLayer, dropped);
    if (status == kOk && dropped > 0) {
        // clang-format off
        IMPError(-1, 2, "The last %d fields were dropped when spectra were\noutput to %s, because the maxmium-number-of-fields\nlimit of the file format was exceeded.", dropped, szFilO);
        // clang-format on
    }
    GDBClose(file);
    return status;
}

int KSIsASpectraLayer(HostLayer* hLayer) {
    constexpr const char* label = "KSIsASpectraLayer ()";
    if (hLayer == nullptr) return 0;
    bool hasTarget = false;
    bool hasMeasurement = false;
    const int fields = GDBGetNumFields(hLayer);
    for (int i = 0; i < fields; ++i) {
        KSSTFld field;
        if (_EvalSTFldHdr(hLayer, i, &field) != kOk) return KS_FAIL("%s: EvalSTFldHdr () failed.\n", label), 0;
        hasTarget = hasTarget || field.eFldID == KS_FLD_TARGET;
        hasMeasurement = hasMeasurement || field.eFldID == KS_FLD_MEAS;
        if (hasTarget && hasMeasurement) return 1;
    }
    return 0;
}
