// Names of the fields of a spectra layer: which field says what.
#include <kslib/kssio.h>

#include <kslib/ksld.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "support/heap.hpp"
#include "support/number.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

// ---- writing names ----

/// The letter, whole nanometres, '_' and three decimals. A fraction that rounds up to 1 loses its 1 with its point:
/// 450.9996 becomes 450_000, the name under which such fields have always been stored.
char* fieldName(char letter, float wavelength) {
    constexpr int kDecimals = 3;
    constexpr std::size_t kUsualRoom = 15;
    float whole = 0.0F;
    const float fraction = std::modf(std::abs(wavelength), &whole);  // -0 is 0 too
    const NumberText wholeText(static_cast<double>(whole), 0);
    const NumberText fractionText(static_cast<double>(fraction), kDecimals);
    const std::size_t length = 1 + std::strlen(wholeText.text()) + 1 + kDecimals;
    const std::size_t room = std::max(length + 1, kUsualRoom);
    Heap<char[]> name = allocateArray<char>(static_cast<std::int64_t>(room));
    if (!name) return nullptr;
    std::snprintf(name.get(), room, "%c%s_%s", letter, wholeText.text(), fractionText.text() + std::strlen("0."));
    return name.release();
}

// ---- reading names ----

/// Any number of digits, then nothing or '_' and any number of digits.
bool isWavelength(const char* text) {
    constexpr const char* kDigits = "0123456789";
    text += std::strspn(text, kDigits);
    if (*text == '_') text += 1 + std::strspn(text + 1, kDigits);
    return *text == '\0';
}

/// The number that such a text stands for; 0 without digits.
float wavelengthOf(const char* text) {
    // Far more digits than a wavelength has; what is cut off a longer name cannot change a float.
    char number[128];
    text += std::strspn(text, "0");
    std::snprintf(number, sizeof number, "%.127s", text);
    if (char* point = std::strchr(number, '_'); point != nullptr) *point = '.';
    return static_cast<float>(parseReal(number));
}

int metadataField(const char* name) {
    const auto isNamed = [name](const KSDesc& row) { return std::strcmp(row.szName, name) == 0; };
    const KSDesc* row = std::find_if(std::begin(aKSFldID), std::end(aKSFldID), isNamed);
    return row == std::end(aKSFldID) ? KS_FLD_UNKNOWN : static_cast<int>(row - aKSFldID);
}

KSSTFld fieldNamed(const char* name, int index) {
    const bool hasWavelength = (name[0] == 'm' || name[0] == 'q') && isWavelength(name + 1);
    if (!hasWavelength) return {metadataField(name), 0.0F, index, -1};
    return {name[0] == 'm' ? KS_FLD_MEAS : KS_FLD_QUAL, wavelengthOf(name + 1), index, -1};
}

}  // namespace

char* _WlenToMeasFldName(float fWavelength) {
    if (!(fWavelength >= 0.0F)) {
        KS_FAIL("%s: fWavelength (%f) < 0.0 .\n", "_WlenToMeasFldName ()", static_cast<double>(fWavelength));
        return nullptr;
    }
    return fieldName('m', fWavelength);
}

char* _WlenToQualFldName(float fWavelength) {
    if (!(fWavelength >= 0.0F)) {
        KS_FAIL("%s: fWavelength (%f) < 0.0 .\n", "_WlenToQualFldName ()", static_cast<double>(fWavelength));
        return nullptr;
    }
    return fieldName('q', fWavelength);
}

int _EvalSTFldHdr(HostLayer* hLayer, int nFldInd, KSSTFld* pFld) {
    constexpr const char* label = "EvalSTFldHdr ()";
    if (hLayer == nullptr) return KS_FAIL("%s: hLayer == NULL.\n", label);
    if (nFldInd < 0) return KS_FAIL("%s: nFldInd < 0.\n", label);
    const int fields = GDBGetNumFields(hLayer);
    if (fields == 0) return KS_FAIL("%s: GDBGetNumFields () returned 0.\n", label);
    if (nFldInd >= fields) return KS_FAIL("%s: nFldInd > nNumFields.\n", label);
    const char* name = GDBGetFieldName(hLayer, nFldInd);
    if (name == nullptr || *name == '\0') return KS_FAIL("%s: GDBGetFieldName () returned \"\".\n", label);
    if (pFld == nullptr) return KS_FAIL("%s: pFld == NULL.\n", label);
    *pFld = fieldNamed(name, nFldInd);
    return kOk;
}

int _CountFields(HostLayer* hLayer, int* pnNumMetaFields, int* pnNumMeasFields, int* pnNumQualFields) {
    constexpr const char* label = "_CountFields ()";
    if (hLayer == nullptr) return KS_FAIL("%s: hLayer == NULL.\n", label);
    if (pnNumMetaFields == nullptr) return KS_FAIL("%s: pnNumMetaFields == NULL.\n", label);
    if (pnNumMeasFields == nullptr) return KS_FAIL("%s: pnNumMeasFields == NULL.\n", label);
    const int fields = GDBGetNumFields(hLayer);
    if (fields == 0) return KS_FAIL("%s: nNumFields == 0.\n", label);
    int metadata = 0;
    int measurements = 0;
    int qualities = 0;
    for (int i = 0; i < fields; ++i) {
        KSSTFld field;
        if (_EvalSTFldHdr(hLayer, i, &field) != kOk) return KS_FAIL("%s: _EvalSTFldHdr () failed.\n", label);
        if (field.eFldID == KS_FLD_MEAS) {
            ++measurements;
        } else if (field.eFldID == KS_FLD_QUAL) {
            ++qualities;
        } else if (field.eFldID != KS_FLD_UNKNOWN) {
            ++metadata;
        }
    }
    *pnNumMetaFields = metadata;
    *pnNumMeasFields = measurements;
    if (pnNumQualFields != nullptr) *pnNumQualFields = qualities;
    return kOk;
}
