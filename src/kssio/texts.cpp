// The texts in which regions, qualities and quantities stand in the fields of a layer.
#include <kslib/kssio.h>

#include <kslib/ksld.h>
#include <kslib/ksroi.h>

#include <cstdio>
#include <cstring>
#include <iterator>

#include "support/heap.hpp"
#include "support/number.hpp"
#include "support/region.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

/// The next word of a text that is edited in place; the text goes on behind it. Null at the end.
char* nextWord(char*& text) {
    text += std::strspn(text, " ");
    if (*text == '\0') return nullptr;
    char* word = text;
    text += std::strcspn(text, " ");
    if (*text != '\0') *text++ = '\0';
    return word;
}

/// A keyword and the coordinate or size that it sets.
struct Keyword {
    const char* name;
    int* value;
    bool isGiven = false;
};

enum class Reading { complete, invalid, incomplete };

/// Keywords in any order, each followed by a number.
template <std::size_t kCount>
Reading readKeywords(char* text, Keyword (&keywords)[kCount]) {
    while (const char* word = nextWord(text)) {
        Keyword* keyword = keywords;
        while (keyword != std::end(keywords) && std::strcmp(keyword->name, word) != 0) ++keyword;
        if (keyword == std::end(keywords)) return Reading::invalid;
        const char* number = nextWord(text);
        if (number == nullptr) return Reading::incomplete;
        const int value = parseInt(number);
        if (value < 0) return Reading::invalid;
        *keyword->value = value;
        keyword->isGiven = true;
    }
    for (const Keyword& keyword : keywords) {
        if (!keyword.isGiven) return Reading::incomplete;
    }
    return Reading::complete;
}

int readPoint(char* text, KSROI& region) {
    constexpr const char* label = "_InterpROIPoint ()";
    Keyword keywords[] = {{"xoff", &region.nXOff}, {"yoff", &region.nYOff}, {"size", &region.nXSize}};
    const Reading reading = readKeywords(text, keywords);
    if (reading == Reading::invalid) return KS_FAIL_TEXT("%s: invalid point ROI specification.\n", label);
    if (reading == Reading::incomplete) return KS_FAIL_TEXT("%s: point ROI specification is incomplete.\n", label);
    return kOk;
}

int readRectangle(char* text, KSROI& region) {
    constexpr const char* label = "_InterpROIRect ()";
    Keyword keywords[] = {
        {"xoff", &region.nXOff}, {"yoff", &region.nYOff}, {"xsize", &region.nXSize}, {"ysize", &region.nYSize}};
    const Reading reading = readKeywords(text, keywords);
    if (reading == Reading::invalid) return KS_FAIL_TEXT("%s: invalid rectangle ROI specification.\n", label);
    if (reading == Reading::incomplete) return KS_FAIL_TEXT("%s: rectangle ROI specification is incomplete.\n", label);
    return kOk;
}

int readBitmap(const char* text, KSROI& region) {
    constexpr const char* label = "_InterpROIBitmap ()";
    text += std::strspn(text, " ");
    const int number = parseInt(text);
    if (number < 1) return KS_FAIL_TEXT("%s: invalid bitmap ROI specification.\n", label);
    if (std::strchr(text, ' ') != nullptr) return KS_FAIL_TEXT("%s: premature end of ROI specification.\n", label);
    region.nBitmapID = number;
    return kOk;
}

template <std::size_t kRows>
int rowNamed(const KSDesc (&rows)[kRows], const char* name) {
    for (std::size_t i = 0; i < kRows; ++i) {
        if (std::strcmp(rows[i].szName, name) == 0) return static_cast<int>(i);
    }
    return 0;
}

template <std::size_t kRows>
char* nameOf(const KSDesc (&rows)[kRows], int row) {
    return row >= 0 && row < static_cast<int>(kRows) ? copyText(rows[row].szName) : nullptr;
}

}  // namespace

char* _ROIStructToStr(const KSROI* pROI) {
    constexpr const char* label = "_ROIStructToStr ()";
    constexpr std::size_t kRoom = 256;
    Heap<char[]> text = allocateArray<char>(static_cast<std::int64_t>(kRoom));
    if (!text) return KS_FAIL("%s: szRetVal == NULL, error in HMalloc ().\n", label), nullptr;
    text[0] = '\0';
    if (pROI == nullptr) return text.release();
    switch (pROI->eROIType) {
        case KS_ROI_POINT:
            std::snprintf(text.get(), kRoom, "%s xoff %d yoff %d size %d", aKSROIType[KS_ROI_POINT].szName, pROI->nXOff,
                          pROI->nYOff, pROI->nXSize);
            break;
        case KS_ROI_RECTANGLE:
            std::snprintf(text.get(), kRoom, "%s xoff %d yoff %d xsize %d ysize %d",
                          aKSROIType[KS_ROI_RECTANGLE].szName, pROI->nXOff, pROI->nYOff, pROI->nXSize, pROI->nYSize);
            break;
        case KS_ROI_BITMAP:
            std::snprintf(text.get(), kRoom, "%s %d", aKSROIType[KS_ROI_BITMAP].szName, pROI->nBitmapID);
            break;
        default:
            return KS_FAIL("%s: Unrecognized ROI type.\n", label), nullptr;
    }
    return text.release();
}

KSROI* _ROIStrToStruct(char* szString) {
    constexpr const char* label = "_ROIStrToStruct ()";
    Region region(KSCreateROI());
    if (!region) return KS_FAIL("%s: pRetVal == NULL, KSCreateROI () failed.\n", label), nullptr;
    if (szString == nullptr) return nullptr;
    char* rest = szString;
    const char* type = nextWord(rest);
    if (type == nullptr) return nullptr;
    region->eROIType = rowNamed(aKSROIType, type);
    int status = kFailed;
    switch (region->eROIType) {
        case KS_ROI_POINT:
            status = readPoint(rest, *region);
            break;
        case KS_ROI_RECTANGLE:
            status = readRectangle(rest, *region);
            break;
        case KS_ROI_BITMAP:
            status = readBitmap(rest, *region);
            break;
        default:
            status = KS_FAIL_TEXT("%s: ROI type is unrecognized\n", label);
    }
    return status == kOk ? region.release() : nullptr;
}

char* _BandQualEnumToStr(int eBandQual) { return nameOf(aKSBandQual, eBandQual); }

char* _RadQuantEnumToStr(int eRadQuant) { return nameOf(aKSRadQuant, eRadQuant); }

int _BandQualStrToEnum(char* szString) {
    if (szString == nullptr) return KS_BQ_UNKNOWN;
    for (char* letter = szString; *letter != '\0'; ++letter) {
        if (*letter >= 'A' && *letter <= 'Z') *letter = static_cast<char>(*letter - 'A' + 'a');
    }
    return rowNamed(aKSBandQual, szString);
}

int _RadQuantStrToEnum(const char* szString) {
    return szString == nullptr ? KS_RQ_UNKNOWN : rowNamed(aKSRadQuant, szString);
}
