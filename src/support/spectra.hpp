// Spectra, sample-table schemas and the layers that keep them.
#pragma once

#include <kslib/kssio.h>

#include <memory>

#include "kshost.h"

namespace ks {

struct SchemaDeleter {
    void operator()(KSSTSchema* schema) const { KSFreeSTSchema(schema); }
};
using Schema = std::unique_ptr<KSSTSchema, SchemaDeleter>;

struct SpectrumDeleter {
    void operator()(KSSpectrum* spectrum) const { KSFreeSpec(spectrum); }
};
using Spectrum = std::unique_ptr<KSSpectrum, SpectrumDeleter>;

/// A spectrum of a schema with all its arrays, or null after a report.
inline Spectrum makeSpectrum(const KSSTSchema& schema) {
    Spectrum spectrum(KSCreateSpec(&schema));
    // One that ran out of memory on the way is handed out as far as it got, and lacks the array that is made last.
    if (spectrum != nullptr && spectrum->pafWlen == nullptr) spectrum.reset();
    return spectrum;
}

inline int countShapes(HostLayer* layer) {
    int count = 0;
    for (int shape = GDBGetFirst(layer); shape != -1; shape = GDBGetNext(layer, shape)) ++count;
    return count;
}

}  // namespace ks
