// A layer of spectra through the coefficients of a sensor. What goes wrong is told to the debug output.
#include <kslib/ksconv.h>

#include <kslib/ksdatset.h>
#include <kslib/kssio.h>

#include "support/heap.hpp"
#include "support/report.hpp"
#include "support/spectra.hpp"

using namespace ks;

namespace {

constexpr const char* kLabel = "KSConvLib ()";

struct ConvCoeffsDeleter {
    void operator()(KSConvCoeffs* coeffs) const {
        KSFreeConvCoeffs(coeffs);
        std::free(coeffs);
    }
};
using ConvCoeffs = std::unique_ptr<KSConvCoeffs, ConvCoeffsDeleter>;

/// Everything that the conversion of one shape needs; coefficients only where wavelengths differ.
struct Conversion {
    Schema librarySchema;
    Schema sensorSchema;
    ConvCoeffs coeffs;
    const int* selectedBands;
    int bands;
};

int prepare(Conversion& conversion, HostLayer* layer, const KSSensor& sensor) {
    conversion.librarySchema.reset(KSSTSchemaFromLayer(layer));
    if (!conversion.librarySchema) return KS_DEBUG_FAIL("%s: KSSTSchemaFromLayer() failed\n", kLabel);
    conversion.sensorSchema.reset(
        KSSTSchemaFromProfile(&sensor, conversion.selectedBands, conversion.bands, /*bFullSchema=*/0));
    if (!conversion.sensorSchema) return KS_DEBUG_FAIL("%s: KSSTSchemaFromProfile() failed\n", kLabel);
    if (KSSimilarSTSchema(conversion.librarySchema.get(), conversion.sensorSchema.get()) != 0) return kOk;
    conversion.coeffs.reset(KSGenSpPrConvCoeffs(conversion.librarySchema.get(), &sensor));
    if (!conversion.coeffs) return KS_DEBUG_FAIL("%s: KSGenSpPrConvCoeffs () failed\n", kLabel);
    return kOk;
}

/// Reads a shape and converts it; null after a report.
Spectrum convertShape(const Conversion& conversion, HostLayer* layer, int shape) {
    Spectrum stored = makeSpectrum(*conversion.librarySchema);
    if (!stored) return Debug("%s: KSCreateSpec () failed\n", kLabel), nullptr;
    if (KSEvalSpecFromShape(layer, shape, conversion.librarySchema.get(), stored.get()) != kOk) {
        return Debug("%s: KSEvalSpecFromShape () failed\n", kLabel), nullptr;
    }
    if (!conversion.coeffs) {
        if (KSFiltSpecSamples(stored.get(), conversion.sensorSchema.get()) != kOk) {
            return Debug("%s: KSFiltSpecSamples () failed\n", kLabel), nullptr;
        }
        return stored;
    }
    Spectrum converted = makeSpectrum(*conversion.sensorSchema);
    if (!converted) return Debug("%s: KSCreateSpec () failed\n", kLabel), nullptr;
    if (KSConvSpec(stored.get(), converted.get(), conversion.coeffs.get(), /*bUseBandQual=*/0, conversion.selectedBands,
                   conversion.bands) != kOk) {
        return Debug("%s: KSConvSpec () failed\n", kLabel), nullptr;
    }
    return converted;
}

}  // namespace

extern "C" {

KSSpectrum** KSConvLib(HostLayer* hLibLayer, const KSSensor* pSensor, const int* panSelBands, int nNumSelBands,
                       int* pnSpectra) {
    if (pSensor == nullptr) return Debug("%s: pSensor == NULL.\n", kLabel), nullptr;
    if (panSelBands == nullptr) return Debug("%s: panSelBands == NULL.\n", kLabel), nullptr;
    if (hLibLayer == nullptr) return Debug("%s: hLibLayer == NULL.\n", kLabel), nullptr;
    if (pnSpectra == nullptr) return Debug("%s: pnSpectra == NULL.\n", kLabel), nullptr;
    Conversion conversion{nullptr, nullptr, nullptr, panSelBands, nNumSelBands};
    if (prepare(conversion, hLibLayer, *pSensor) != kOk) return nullptr;

    const int room = countShapes(hLibLayer);
    Heap<KSSpectrum*[]> spectra = allocateZeroedArray<KSSpectrum*>(room);
    if (!spectra) return Debug("%s: Memory allocation for papsSpectrum failed\n", kLabel), nullptr;
    int count = 0;
    Undo undo([&spectra, &count] {
        for (int i = 0; i < count; ++i) KSFreeSpec(spectra.get()[i]);
    });
    for (int shape = GDBGetFirst(hLibLayer); shape != -1 && count < room; shape = GDBGetNext(hLibLayer, shape)) {
        Spectrum spectrum = convertShape(conversion, hLibLayer, shape);
        if (!spectrum) return nullptr;
        spectra.get()[count++] = spectrum.release();
    }
    undo.dismiss();
    *pnSpectra = count;
    return spectra.release();
}

}  // extern "C"
