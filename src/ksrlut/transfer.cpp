// Moving spectra between a radiance table's segment and spectrum records.
#include <kslib/ksrlut.h>

#include <kslib/kssio.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "support/heap.hpp"
#include "support/tablestatus.hpp"

using namespace ks;

namespace {

enum Mode { kRead = 0, kWrite = 1 };

/// What a caller asks for, in the terms of the table.
struct Transfer {
    RLUT* table;
    int mode;
    KSLUTVector* offset;
    KSLUTVector* count;
    KSLUTVector* step;
    KSLUTVector* resume;
    KSSpectrum* first;
    KSSpectrum* second;

    int wavelengths() const { return table->panSizes[RLUT_WAVELENGTH]; }
};

bool isWhole(const KSLUTVector* vector) {
    return vector != nullptr && vector->nDimensions == RLUT_DIMENSIONS && vector->panValues != nullptr;
}

bool fits(const KSSpectrum* spectra, int wavelengths) {
    return spectra == nullptr || spectra[0].nNumMeasVals == wavelengths;
}

bool hasSpectra(const Transfer& transfer) {
    if (transfer.mode == kRead) return transfer.first != nullptr || transfer.second != nullptr;
    return transfer.first != nullptr && transfer.second != nullptr;
}

bool isPossible(const Transfer& transfer) {
    if (RLUTValidate(transfer.table) != kTableOk || KSLUTIsFileInfoValid(transfer.table) != kTableOk) return false;
    if (!isWhole(transfer.offset) || !isWhole(transfer.count)) return false;
    if (transfer.step != nullptr && !isWhole(transfer.step)) return false;
    if (transfer.resume != nullptr && !isWhole(transfer.resume)) return false;
    if (!hasSpectra(transfer)) return false;
    // Only the two known modes look at the lengths; any other one goes on as a write.
    if (transfer.mode != kRead && transfer.mode != kWrite) return true;
    return fits(transfer.first, transfer.wavelengths()) && fits(transfer.second, transfer.wavelengths());
}

/// Spectra of the rectangle within the limits; below 1 when there is nothing to move.
std::int64_t countSpectra(const Transfer& transfer, int limit, int most) {
    std::int64_t spectra = 1;
    for (int d = 0; d < RLUT_WAVELENGTH; ++d) {
        if (__builtin_mul_overflow(spectra, transfer.count->panValues[d], &spectra)) return 0;
    }
    if (spectra < 1) return 0;
    spectra = std::min<std::int64_t>(spectra, most);
    return transfer.resume == nullptr ? spectra : std::min<std::int64_t>(spectra, limit);
}

/// The component of a spectrum that stands for all its entries: its own number; null past the end.
double* component(KSSpectrum* spectra, int s) {
    VEC* values = spectra[s].pMeas;
    return values != nullptr && s < static_cast<int>(values->dim) ? values->ve + s : nullptr;
}

float valueOf(KSSpectrum* spectra, int s) {
    const double* value = component(spectra, s);
    return value == nullptr ? 0.0F : static_cast<float>(*value);
}

void store(float value, KSSpectrum* spectra, int s) {
    if (spectra == nullptr) return;
    if (double* component_ = component(spectra, s); component_ != nullptr) *component_ = static_cast<double>(value);
}

/// Every entry of a spectrum carries the same pair of values.
void fillEntries(const Transfer& transfer, int spectra, RLUTEntry* entries) {
    for (int s = 0; s < spectra; ++s) {
        entries = std::fill_n(entries, transfer.wavelengths(),
                              RLUTEntry{valueOf(transfer.first, s), valueOf(transfer.second, s)});
    }
}

/// Of all entries of a spectrum the last one remains.
void takeEntries(const Transfer& transfer, int spectra, const RLUTEntry* entries) {
    for (int s = 0; s < spectra; ++s) {
        entries += transfer.wavelengths();
        store(entries[-1].fFirst, transfer.first, s);
        store(entries[-1].fSecond, transfer.second, s);
    }
}

int move(const Transfer& transfer, int spectra) {
    std::int64_t bytes = 0;
    std::int64_t count = 0;
    const Heap<void> buffer(RLUTAllocBuffer(transfer.table, spectra, &bytes));
    const Heap<RLUTEntry> entries(RLUTAllocEntries(transfer.table, spectra, &count));
    if (!buffer || !entries) return kTableFailed;
    const std::int64_t position = transfer.resume == nullptr ? 0 : bytes / transfer.table->nElementSize;
    std::int64_t moved = 0;
    const auto moveBuffer = [&](Mode mode) {
        return KSLUTFileIO(transfer.table, mode, transfer.offset, transfer.count, transfer.step, transfer.resume,
                           position, buffer.get(), bytes, &moved);
    };
    if (transfer.mode != kRead) {
        fillEntries(transfer, spectra, entries.get());
        if (RLUTSerialize2(entries.get(), count, buffer.get(), nullptr) != kTableOk) return kTableFailed;
        return moveBuffer(kWrite);
    }
    // What the host does not deliver reads as 0.
    std::memset(buffer.get(), 0, static_cast<std::size_t>(bytes));
    if (moveBuffer(kRead) != kTableOk) return kTableFailed;
    if (RLUTDeserialize2(buffer.get(), bytes, entries.get(), nullptr) != kTableOk) return kTableFailed;
    takeEntries(transfer, spectra, entries.get());
    return kTableOk;
}

}  // namespace

int RLUTFileIO(RLUT* pRLUT, int nMode, KSLUTVector* pOffset, KSLUTVector* pCount, KSLUTVector* pOpt1,
               KSLUTVector* pOpt2, int nSpectrumLimit, KSSpectrum* paSpectraA, KSSpectrum* paSpectraB, int nMaxSpectra,
               int* pnSpectra) {
    const Transfer transfer = {pRLUT, nMode, pOffset, pCount, pOpt1, pOpt2, paSpectraA, paSpectraB};
    if (!isPossible(transfer)) return kTableFailed;
    pOffset->panValues[RLUT_WAVELENGTH] = 0;
    pCount->panValues[RLUT_WAVELENGTH] = transfer.wavelengths();
    if (pOpt2 != nullptr) pOpt2->panValues[RLUT_WAVELENGTH] = 0;
    const std::int64_t spectra = countSpectra(transfer, nSpectrumLimit, nMaxSpectra);
    if (spectra < 1 || move(transfer, static_cast<int>(spectra)) != kTableOk) return kTableFailed;
    if (pnSpectra != nullptr) *pnSpectra = static_cast<int>(spectra);
    return kTableOk;
}
