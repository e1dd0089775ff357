// Radiance tables: making, opening and recognising them, buffers, coordinates and wavelengths.
#include <kslib/ksrlut.h>

#include <kslib/ksdatset.h>
#include <kslib/ksld.h>
#include <kslib/kssio.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>

#include <strings.h>

#include "kshost.h"
#include "kslut/storage.hpp"
#include "support/heap.hpp"
#include "support/report.hpp"
#include "support/spectra.hpp"
#include "support/tablestatus.hpp"

using namespace ks;

static_assert(sizeof(RLUTEntry) == 8 && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "entries are stored as they lie in memory");

extern "C" const char* const gaszRLUTLabels[10] = {"Sensor altitude",
                                                   "Solar zenith angle",
                                                   "Reflectance",
                                                   "Surface meteorological range",
                                                   "Vertical water vapor column",
                                                   "Scene elevation",
                                                   "Relative view-solar azimuth",
                                                   "View zenith angle",
                                                   "Wavelength",
                                                   nullptr};

namespace {

constexpr std::int64_t kEntryBytes = sizeof(RLUTEntry);

struct TableDeleter {
    void operator()(KSLUT* table) const { KSLUTDestroy(table); }
};
using Table = std::unique_ptr<KSLUT, TableDeleter>;

/// A radiance table with this dimension and its coordinates.
bool hasCoords(const RLUT* table, int d) {
    return RLUTValidate(table) == kTableOk && d >= 0 && d < RLUT_DIMENSIONS && table->papafCoords[d] != nullptr;
}

/// The product of the counts, or -1 where one is below 1 or the product leaves 64 bits.
std::int64_t product(std::int64_t a, std::int64_t b, std::int64_t c = 1) {
    std::int64_t result = 0;
    if (a < 1 || b < 1 || c < 1 || __builtin_mul_overflow(a, b, &result) ||
        __builtin_mul_overflow(result, c, &result)) {
        return -1;
    }
    return result;
}

/// Entries or bytes of so many spectra, or -1 when there is no such number.
std::int64_t entriesOf(const RLUT* table, int spectra) {
    return RLUTValidate(table) == kTableOk ? product(table->panSizes[RLUT_WAVELENGTH], spectra) : -1;
}
std::int64_t bytesOf(const RLUT* table, int spectra) {
    const std::int64_t entries = entriesOf(table, spectra);
    return entries < 1 ? -1 : product(entries, table->nElementSize);
}

template <class T>
T* counted(T* block, std::int64_t count, std::int64_t* output) {
    if (block != nullptr && output != nullptr) *output = count;
    return block;
}

/// The index of a number that lies between 0 and n, toward zero.
int truncated(double value) {
    constexpr double kLeast = std::numeric_limits<int>::min();
    constexpr double kMost = std::numeric_limits<int>::max();
    return std::isnan(value) ? 0 : static_cast<int>(std::clamp(value, kLeast, kMost));
}

constexpr double kTolerance = 1e-5;  // of fractional indexes

int firstIndex(double index, int size, bool isInside) {
    if (index < kTolerance) return 0;
    if (index <= (size - 1) + kTolerance) return truncated(index - kTolerance) + (isInside ? 1 : 0);
    return size;
}

int lastIndex(double index, int size, bool isInside) {
    if (index > (size - 1) - kTolerance) return size - 1;
    if (index < -kTolerance) return -1;
    return truncated(index + kTolerance) + 1 - (isInside ? 1 : 0);
}

/// The fractional index of a coordinate among n increasing ones.
float fractionalIndex(const float* c, int n, float x) {
    const float first = c[0];
    const float last = c[n - 1];
    if (x < first) return (x - first) / (last - x);
    if (!(x <= last)) return (x - last) / (x - first) + static_cast<float>(n - 1);
    int i = 1;
    while (i < n && !(x <= c[i])) ++i;
    if (i == n) return 0.0F;
    const float step = c[i] - c[i - 1];
    const bool isSame = -1e-9 < static_cast<double>(step) && static_cast<double>(step) < 1e-9;
    return isSame ? static_cast<float>(i - 1) : (x - c[i - 1]) / step + static_cast<float>(i - 1);
}

bool increases(const float* coords, int count) {
    if (std::isnan(coords[0])) return false;
    for (int i = 1; i < count; ++i) {
        if (!(coords[i] > coords[i - 1])) return false;
    }
    return true;
}

bool fillSchema(KSSTSchema& schema, const float* wavelengths, int count) {
    constexpr int kMetadata = 2;
    schema.pMetaFlds = allocateArray<KSSTFld>(std::int64_t{kMetadata}).release();
    schema.pMeasFld = allocateArray<KSSTFld>(std::int64_t{count}).release();
    if (schema.pMetaFlds == nullptr || schema.pMeasFld == nullptr) return false;
    schema.nNumMetaFlds = kMetadata;
    schema.nNumMeasFlds = count;
    schema.pMetaFlds[0] = {KS_FLD_TARGET, 0.0F, 0, -1};
    schema.pMetaFlds[1] = {KS_FLD_QUANTITY, 0.0F, 1, -1};
    for (int i = 0; i < count; ++i) schema.pMeasFld[i] = {KS_FLD_MEAS, wavelengths[i], kMetadata + i, -1};
    return true;
}

bool knowsAllResponses(const KSSensor& sensor) {
    if (sensor.nNumBands < 1 || sensor.pBandResp == nullptr) return false;
    return std::none_of(sensor.pBandResp, sensor.pBandResp + sensor.nNumBands,
                        [](const KSBandResp& response) { return response.eRespType == KS_RT_UNKNOWN; });
}

HostFile* openQuietly(const char* name, const char* access) {
    const int previous = IMPFatal(0);
    HostFile* file = GDBOpen(name, access);
    IMPFatal(previous);
    return file;
}

}  // namespace

// ---- tables ----

RLUT* RLUTCreate(void) {
    Table table(KSLUTCreate(RLUT_DIMENSIONS));
    const bool isMade = KSLUTSetLabels(table.get(), gaszRLUTLabels) == kTableOk &&
                        KSLUTSetElementSize(table.get(), static_cast<int>(kEntryBytes)) == kTableOk;
    return isMade ? table.release() : nullptr;
}

RLUT* RLUTOpen(const char* pszFile, int nSegment, const char* pszMode) {
    Table table(RLUTCreate());
    if (!table) return nullptr;
    HostFile* file = openQuietly(pszFile, pszMode);
    if (file == nullptr) return nullptr;
    bool isTable = false;
    if (KSLUTSetFileInfo(table.get(), file, nSegment) == kTableOk) {
        const Attributes attributes = readAttributes(table.get());
        if (attributes == Attributes::released) static_cast<void>(table.release());
        isTable = attributes == Attributes::read && RLUTValidate(table.get()) == kTableOk;
    }
    if (!isTable) table.reset();
    // The table has a reference of its own.
    GDBClose(file);
    return table.release();
}

int RLUTValidate(const RLUT* pRLUT) {
    if (KSLUTIsValid(pRLUT) != kTableOk) return kTableFailed;
    if (pRLUT->nDimensions != RLUT_DIMENSIONS || pRLUT->nElementSize != kEntryBytes) return kTableFailed;
    for (int d = 0; d < RLUT_DIMENSIONS; ++d) {
        const char* label = pRLUT->papszLabels[d];
        if (label == nullptr || strcasecmp(label, gaszRLUTLabels[d]) != 0) return kTableFailed;
    }
    return kTableOk;
}

// ---- buffers ----

void* RLUTAllocBuffer(const RLUT* pRLUT, int nSpectra, int64_t* pnBytes) {
    const std::int64_t bytes = bytesOf(pRLUT, nSpectra);
    if (bytes < 1) return nullptr;
    return counted(allocateArray<unsigned char>(bytes).release(), bytes, pnBytes);
}

RLUTEntry* RLUTAllocEntries(const RLUT* pRLUT, int nSpectra, int64_t* pnEntries) {
    const std::int64_t entries = entriesOf(pRLUT, nSpectra);
    if (entries < 1) return nullptr;
    return counted(allocateZeroedArray<RLUTEntry>(entries).release(), entries, pnEntries);
}

void* RLUTReallocBuffer(void* pBuffer, const RLUT* pRLUT, int nSpectra, int64_t* pnBytes) {
    const std::int64_t bytes = bytesOf(pRLUT, nSpectra);
    if (bytes < 1) return nullptr;
    return counted(reallocateArray(static_cast<unsigned char*>(pBuffer), bytes), bytes, pnBytes);
}

RLUTEntry* RLUTReallocEntries(RLUTEntry* paEntries, const RLUT* pRLUT, int nSpectra, int64_t* pnEntries) {
    const std::int64_t entries = entriesOf(pRLUT, nSpectra);
    if (entries < 1) return nullptr;
    return counted(reallocateArray(paEntries, entries), entries, pnEntries);
}

void* RLUTSerialize(const RLUTEntry* paEntries, int64_t nEntries, int64_t* pnBytes) {
    if (paEntries == nullptr || nEntries < 1) return nullptr;
    Heap<unsigned char[]> buffer = allocateArray<unsigned char>(nEntries, kEntryBytes);
    if (RLUTSerialize2(paEntries, nEntries, buffer.get(), pnBytes) != kTableOk) return nullptr;
    return buffer.release();
}

int RLUTSerialize2(const RLUTEntry* paEntries, int64_t nEntries, void* pBuffer, int64_t* pnBytes) {
    const std::int64_t bytes = product(nEntries, kEntryBytes);
    if (paEntries == nullptr || pBuffer == nullptr || bytes < 1) return kTableFailed;
    std::memcpy(pBuffer, paEntries, static_cast<std::size_t>(bytes));
    if (pnBytes != nullptr) *pnBytes = bytes;
    return kTableOk;
}

RLUTEntry* RLUTDeserialize(const void* pBuffer, int64_t nBytes, int64_t* pnEntries) {
    if (pBuffer == nullptr || nBytes < kEntryBytes) return nullptr;
    Heap<RLUTEntry[]> entries = allocateZeroedArray<RLUTEntry>(nBytes / kEntryBytes);
    if (RLUTDeserialize2(pBuffer, nBytes, entries.get(), pnEntries) != kTableOk) return nullptr;
    return entries.release();
}

int RLUTDeserialize2(const void* pBuffer, int64_t nBytes, RLUTEntry* paEntries, int64_t* pnEntries) {
    if (pBuffer == nullptr || paEntries == nullptr || nBytes < kEntryBytes) return kTableFailed;
    const std::int64_t entries = nBytes / kEntryBytes;
    std::memcpy(paEntries, pBuffer, static_cast<std::size_t>(entries * kEntryBytes));
    if (pnEntries != nullptr) *pnEntries = entries;
    return kTableOk;
}

// ---- coordinates ----

int RLUTGetCoordRange(const RLUT* pRLUT, int nDimension, float* pfFirst, float* pfLast) {
    if (!hasCoords(pRLUT, nDimension)) return kTableFailed;
    const float* coords = pRLUT->papafCoords[nDimension];
    if (pfFirst != nullptr) *pfFirst = coords[0];
    if (pfLast != nullptr) *pfLast = coords[pRLUT->panSizes[nDimension] - 1];
    return kTableOk;
}

int RLUTGetCoordRanges(const RLUT* pRLUT, float* pafFirst, float* pafLast) {
    for (int d = 0; d < RLUT_DIMENSIONS; ++d) {
        float* first = pafFirst == nullptr ? nullptr : pafFirst + d;
        float* last = pafLast == nullptr ? nullptr : pafLast + d;
        if (RLUTGetCoordRange(pRLUT, d, first, last) != kTableOk) return kTableFailed;
    }
    return kTableOk;
}

int RLUTGetIndexFromCoord(const RLUT* pRLUT, int nDimension, float fCoord, float* pfIndex) {
    if (!hasCoords(pRLUT, nDimension)) return kTableFailed;
    const float index = fractionalIndex(pRLUT->papafCoords[nDimension], pRLUT->panSizes[nDimension], fCoord);
    if (pfIndex != nullptr) *pfIndex = index;
    return kTableOk;
}

int RLUTGetIndexesFromCoordRange(const RLUT* pRLUT, int nDimension, float fLow, float fHigh, int* pnFirst, int* pnLast,
                                 int bInside) {
    float low = 0.0F;
    float high = 0.0F;
    if (!(fLow <= fHigh) || RLUTGetIndexFromCoord(pRLUT, nDimension, fLow, &low) != kTableOk ||
        RLUTGetIndexFromCoord(pRLUT, nDimension, fHigh, &high) != kTableOk) {
        return kTableFailed;
    }
    const int size = pRLUT->panSizes[nDimension];
    const bool isInside = bInside == 1;
    if (pnFirst != nullptr) *pnFirst = firstIndex(static_cast<double>(low), size, isInside);
    if (pnLast != nullptr) *pnLast = lastIndex(static_cast<double>(high), size, isInside);
    return kTableOk;
}

int RLUTSPS(const RLUT* pRLUT, float fFraction, int* pnSpectra, const int* pnMaxSpectra) {
    std::int64_t elements = 0;
    if (RLUTValidate(pRLUT) != kTableOk || KSLUTEPS(pRLUT, fFraction, &elements, nullptr) != kTableOk) {
        return kTableFailed;
    }
    std::int64_t spectra = std::max<std::int64_t>(elements / pRLUT->panSizes[RLUT_WAVELENGTH], 1);
    if (pnMaxSpectra != nullptr) spectra = std::min<std::int64_t>(spectra, *pnMaxSpectra);
    if (pnSpectra != nullptr) *pnSpectra = static_cast<int>(spectra);
    return kTableOk;
}

// ---- wavelengths ----

KSSTSchema* KSSTSchemaFromRLUT(const RLUT* pRLUT) {
    if (!hasCoords(pRLUT, RLUT_WAVELENGTH)) return nullptr;
    const float* wavelengths = pRLUT->papafCoords[RLUT_WAVELENGTH];
    const int count = pRLUT->panSizes[RLUT_WAVELENGTH];
    if (!increases(wavelengths, count)) return nullptr;
    Schema schema(allocateZeroed<KSSTSchema>().release());
    return schema && fillSchema(*schema, wavelengths, count) ? schema.release() : nullptr;
}

int RLUTIsDatasetSimilar(const RLUT* pRLUT, const KSDataSet* pDataSet, int* pbSimilar) {
    const Schema ofTable(KSSTSchemaFromRLUT(pRLUT));
    if (!ofTable || pDataSet == nullptr || !knowsAllResponses(pDataSet->Sensor)) return kTableFailed;
    int bands = 0;
    int* bandMap = nullptr;
    if (KSSelectBands(pDataSet, nullptr, 0, 0, nullptr, &bands, &bandMap) != kOk) return kTableFailed;
    const Heap<int[]> ownedMap(bandMap);
    if (bands < 1) return kTableFailed;
    const Schema ofDataSet(KSSTSchemaFromProfile(&pDataSet->Sensor, bandMap, bands, 0));
    if (!ofDataSet) return kTableFailed;
    const int isSimilar = KSSimilarSTSchema(ofTable.get(), ofDataSet.get());
    if (pbSimilar != nullptr) *pbSimilar = isSimilar;
    return kTableOk;
}
