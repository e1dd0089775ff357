// One spectrum as one shape of a spectra layer, and back.
#include <kslib/kssio.h>

#include <kslib/ksld.h>
#include <kslib/ksroi.h>

#include <algorithm>
#include <cstring>

#include "support/heap.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

constexpr const char* kAddLabel = "KSAddShapeFromSpec ()";
constexpr const char* kEvalLabel = "KSEvalSpecFromShape ()";

/// A flag of the layer for as long as a shape is being added.
class LayerFlag {
public:
    explicit LayerFlag(HostLayer& layer) : layer_(layer), before_(layer.nFlags) { layer_.nFlags |= kAdding; }
    LayerFlag(const LayerFlag&) = delete;
    LayerFlag& operator=(const LayerFlag&) = delete;
    ~LayerFlag() { layer_.nFlags = before_; }

private:
    static constexpr unsigned kAdding = 0x100;
    HostLayer& layer_;
    unsigned before_;
};

/// The values that the spectrum's own count promises.
bool hasValues(const KSSpectrum& spectrum) {
    return spectrum.pMeas != nullptr && static_cast<int>(spectrum.pMeas->dim) >= spectrum.nNumMeasVals;
}

// ---- adding ----

int checkAddition(HostLayer* layer, const KSSTSchema* schema, const KSSpectrum* spectrum) {
    constexpr const char* label = kAddLabel;
    if (schema == nullptr) return KS_FAIL("%s: pSTSchema == NULL.\n", label);
    if (layer == nullptr) return KS_FAIL("%s: hLayer == NULL.\n", label);
    if (spectrum == nullptr) return KS_FAIL("%s: pSpectrum == NULL.\n", label);
    if (!hasValues(*spectrum) || spectrum->nNumMeasVals < std::max(schema->nNumMeasFlds, schema->nNumQualFlds)) {
        return KS_FAIL("%s: pSpectrum has fewer values than pSTSchema has fields.\n", label);
    }
    if (spectrum->peBandQual == nullptr && schema->nNumQualFlds > 0) {
        return KS_FAIL("%s: pSpectrum->peBandQual == NULL.\n", label);
    }
    return kOk;
}

void setText(HostLayer* layer, int shape, const KSSTFld& field, const char* text) {
    GDBSetValueString(layer, shape, field.nFldInd, text == nullptr ? "" : text);
}

int setMetadata(HostLayer* layer, int shape, const KSSTFld& field, const KSSpectrum& spectrum) {
    constexpr const char* label = kAddLabel;
    switch (field.eFldID) {
        case KS_FLD_TARGET:
            setText(layer, shape, field, spectrum.szTarget);
            break;
        case KS_FLD_QUANTITY: {
            const Heap<char> text(_RadQuantEnumToStr(spectrum.eRadQuant));
            if (!text) return KS_FAIL("%s: szString == NULL, error in _RadQuantEnumToStr ().\n", label);
            setText(layer, shape, field, text.get());
            break;
        }
        case KS_FLD_SOURCE_FILE:
            setText(layer, shape, field, spectrum.szSourceFile);
            break;
        case KS_FLD_ROI_FILE:
            setText(layer, shape, field, spectrum.szROIFile);
            break;
        case KS_FLD_ROI: {
            const Heap<char> text(_ROIStructToStr(spectrum.paROI));
            if (!text) return KS_FAIL("%s: szString == NULL, error in _ROIStructToStr().\n", label);
            setText(layer, shape, field, text.get());
            break;
        }
        default:
            break;
    }
    return kOk;
}

// ---- reading ----

int checkReading(HostLayer* layer, int shape, const KSSTSchema* schema, const KSSpectrum* spectrum) {
    constexpr const char* label = kEvalLabel;
    if (schema == nullptr) return KS_FAIL("%s: pSTSchema == NULL.\n", label);
    if (layer == nullptr) return KS_FAIL("%s: hLayer == NULL.\n", label);
    if (shape < 0) return KS_FAIL("%s: hShapeID < 0.\n", label);
    if (spectrum == nullptr) return KS_FAIL("%s: pSpectrum == NULL.\n", label);
    if (spectrum->nNumMeasVals != schema->nNumMeasFlds) {
        return KS_FAIL("%s: pSpectrum->nNumMeasVals != pSTSchema->nNumMeasFlds.\n", label);
    }
    if (!hasValues(*spectrum) || spectrum->peBandQual == nullptr) {
        return KS_FAIL("%s: pSpectrum lacks its arrays.\n", label);
    }
    return kOk;
}

/// Cuts white space off both ends of a text, in place.
char* trim(char* text) {
    constexpr const char* kSpace = " \t\n\v\f\r";
    text += std::strspn(text, kSpace);
    char* end = text + std::strlen(text);
    while (end > text && std::strchr(kSpace, end[-1]) != nullptr) --end;
    *end = '\0';
    return text;
}

void replaceText(char*& owned, const char* text) {
    std::free(owned);
    owned = _HString(text);
}

void replaceRegion(KSSpectrum& spectrum, const char* text) {
    KSFreeROIList(spectrum.paROI, std::max(spectrum.nNumROIs, 1));
    const Heap<char> copy(_HString(text));
    spectrum.paROI = _ROIStrToStruct(copy.get());
    spectrum.nNumROIs = spectrum.paROI == nullptr ? 0 : 1;
}

void takeMetadata(int fieldId, char* text, KSSpectrum& spectrum) {
    text = trim(text);
    switch (fieldId) {
        case KS_FLD_TARGET:
            replaceText(spectrum.szTarget, text);
            break;
        case KS_FLD_QUANTITY:
            spectrum.eRadQuant = _RadQuantStrToEnum(text);
            break;
        case KS_FLD_SOURCE_FILE:
            replaceText(spectrum.szSourceFile, text);
            break;
        case KS_FLD_ROI_FILE:
            replaceText(spectrum.szROIFile, text);
            break;
        case KS_FLD_ROI:
            replaceRegion(spectrum, text);
            break;
        default:
            break;
    }
}

/// The quality of a value: a value that is not positive is to be skipped, whatever its field says.
int takeQuality(HostLayer* layer, int shape, const KSSTFld& field, double value, int& quality) {
    if (!(value > 0.0)) {
        quality = KS_BQ_SKIP;
    } else if (field.nQualFldInd > 0) {
        char* text = GDBGetValueString(layer, shape, field.nQualFldInd);
        if (text == nullptr) return KS_FAIL("%s: szString == NULL.\n", kEvalLabel);
        quality = _BandQualStrToEnum(text + std::strspn(text, " "));
    } else {
        quality = KS_BQ_PLOT;
    }
    return kOk;
}

}  // namespace

int KSAddShapeFromSpec(HostLayer* hLayer, const KSSTSchema* pSTSchema, const KSSpectrum* pSpectrum) {
    if (checkAddition(hLayer, pSTSchema, pSpectrum) != kOk) return kFailed;
    const LayerFlag adding(*hLayer);
    const int shape = GDBCreateShape(hLayer, 0);
    if (shape < 0) return kFailed;  // the host has said why
    for (int i = 0; i < pSTSchema->nNumMetaFlds; ++i) {
        if (setMetadata(hLayer, shape, pSTSchema->pMetaFlds[i], *pSpectrum) != kOk) return kFailed;
    }
    // A wavelength without a name has no field in the layer.
    for (int j = 0; j < pSTSchema->nNumMeasFlds; ++j) {
        const KSSTFld& field = pSTSchema->pMeasFld[j];
        if (field.nFldInd >= 0) GDBSetValue(hLayer, shape, field.nFldInd, pSpectrum->pMeas->ve[j]);
    }
    for (int j = 0; j < pSTSchema->nNumQualFlds; ++j) {
        if (pSTSchema->pQualFld[j].nFldInd < 0) continue;
        const Heap<char> text(_BandQualEnumToStr(pSpectrum->peBandQual[j]));
        if (!text) return kFailed;
        setText(hLayer, shape, pSTSchema->pQualFld[j], text.get());
    }
    return kOk;
}

int KSEvalSpecFromShape(HostLayer* hLayer, int hShapeID, const KSSTSchema* pSTSchema, KSSpectrum* pSpectrum) {
    if (checkReading(hLayer, hShapeID, pSTSchema, pSpectrum) != kOk) return kFailed;
    for (int i = 0; i < pSTSchema->nNumMetaFlds; ++i) {
        const KSSTFld& field = pSTSchema->pMetaFlds[i];
        char* text = GDBGetValueString(hLayer, hShapeID, field.nFldInd);
        if (text == nullptr) return KS_FAIL("%s: szString == NULL.\n", kEvalLabel);
        takeMetadata(field.eFldID, text, *pSpectrum);
    }
    for (int j = 0; j < pSTSchema->nNumMeasFlds; ++j) {
        const KSSTFld& field = pSTSchema->pMeasFld[j];
        const double value = GDBGetValue(hLayer, hShapeID, field.nFldInd);
        pSpectrum->pMeas->ve[j] = value;
        if (takeQuality(hLayer, hShapeID, field, value, pSpectrum->peBandQual[j]) != kOk) return kFailed;
    }
    return kOk;
}
