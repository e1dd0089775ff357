// Libraries as vector layers: how spectra come out of files that hold them as layers, and go into new ones.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <kshost_app.h>

#include "spectra/speclib.hpp"

namespace kscli {

struct SpectrumDeleter {
    void operator()(KSSpectrum* spectrum) const { KSFreeSpec(spectrum); }
};
using SpectrumRecord = std::unique_ptr<KSSpectrum, SpectrumDeleter>;
struct SchemaDeleter {
    void operator()(KSSTSchema* schema) const { KSFreeSTSchema(schema); }
};
using Schema = std::unique_ptr<KSSTSchema, SchemaDeleter>;

/// What a layer has fields for besides names, quantities and values.
enum class LayerFields { valuesOnly, all };

/// The schema of a library on these wavelengths.
Schema schemaOf(const std::vector<float>& wavelengths, LayerFields fields = LayerFields::all);
/// A spectrum as the library keeps it, complete.
SpectrumRecord recordOf(const LibrarySpectrum& spectrum, const KSSTSchema* schema);

/// Spectra of one grid as a layer in memory.
class SpectraLayer {
public:
    SpectraLayer(const std::vector<LibrarySpectrum>& spectra, LayerFields fields);
    ~SpectraLayer();
    SpectraLayer(const SpectraLayer&) = delete;
    SpectraLayer& operator=(const SpectraLayer&) = delete;

    HostLayer* handle() const { return layer_; }
    /// Writes the layer to a new file of a host file type.
    void write(const std::string& name, int fileType) const;

private:
    Schema schema_;
    HostLayer* layer_ = nullptr;
};

/// Reads the spectra layer of a file, whole: a .sli file also beyond 3000 nm. An image without one, of one pixel a line
/// or one line, is a library of its pixels.
std::vector<LibrarySpectrum> readLayerFile(const std::string& name);

/// Whether a file holds layers and no image.
bool isLayerFile(const std::string& name);

}  // namespace kscli
