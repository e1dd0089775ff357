// Schemas, spectra and layers for tests.
#pragma once

#include <kslib.h>

#include <memory>
#include <string>
#include <vector>

#include "datasets.hpp"
#include "fakehost.hpp"

namespace kit {

struct SchemaDeleter {
    void operator()(KSSTSchema* schema) const { KSFreeSTSchema(schema); }
};
using Schema = std::unique_ptr<KSSTSchema, SchemaDeleter>;

struct SpectrumDeleter {
    void operator()(KSSpectrum* spectrum) const { KSFreeSpec(spectrum); }
};
using Spectrum = std::unique_ptr<KSSpectrum, SpectrumDeleter>;

struct TextDeleter {
    void operator()(char* text) const { std::free(text); }
};
using Text = std::unique_ptr<char, TextDeleter>;

/// A schema whose fields follow each other in a layer: metadata, measurement and, for `qualities` of the wavelengths,
/// quality fields.
inline Schema schemaOf(const std::vector<int>& metadata, const std::vector<float>& wavelengths,
                       const std::vector<float>& qualities = {}) {
    int at = 0;
    std::vector<KSSTFld> meta;
    for (const int identifier : metadata) meta.push_back({identifier, 0.0F, at++, -1});
    std::vector<KSSTFld> measurements;
    for (const float wavelength : wavelengths) measurements.push_back({KS_FLD_MEAS, wavelength, at++, -1});
    std::vector<KSSTFld> others;
    for (const float wavelength : qualities) {
        for (KSSTFld& measurement : measurements) {
            if (measurement.fWlen == wavelength) measurement.nQualFldInd = at;
        }
        others.push_back({KS_FLD_QUAL, wavelength, at++, -1});
    }
    Schema schema(heapRecord<KSSTSchema>());
    schema->pMetaFlds = heapArray(meta);
    schema->nNumMetaFlds = static_cast<int>(meta.size());
    schema->pMeasFld = heapArray(measurements);
    schema->nNumMeasFlds = static_cast<int>(measurements.size());
    schema->pQualFld = heapArray(others);
    schema->nNumQualFlds = static_cast<int>(others.size());
    return schema;
}

/// All five metadata fields.
inline std::vector<int> allMetadata() {
    return {KS_FLD_TARGET, KS_FLD_QUANTITY, KS_FLD_SOURCE_FILE, KS_FLD_ROI_FILE, KS_FLD_ROI};
}

/// Fields by their names: numbers where those start with "m", else texts.
inline FakeFields fieldsNamed(const std::vector<std::string>& names) {
    constexpr int kReal = 2;
    constexpr int kText = 3;
    FakeFields fields;
    for (const std::string& name : names) {
        fields.emplace_back(name, !name.empty() && name[0] == 'm' ? kReal : kText);
    }
    return fields;
}

inline std::vector<float> wavelengths(const KSSTFld* fields, int count) {
    std::vector<float> found;
    for (int i = 0; i < count; ++i) found.push_back(fields[i].fWlen);
    return found;
}

inline std::vector<int> indexes(const KSSTFld* fields, int count) {
    std::vector<int> found;
    for (int i = 0; i < count; ++i) found.push_back(fields[i].nFldInd);
    return found;
}

inline std::vector<int> identifiers(const KSSTFld* fields, int count) {
    std::vector<int> found;
    for (int i = 0; i < count; ++i) found.push_back(fields[i].eFldID);
    return found;
}

inline std::vector<int> qualityIndexes(const KSSTFld* fields, int count) {
    std::vector<int> found;
    for (int i = 0; i < count; ++i) found.push_back(fields[i].nQualFldInd);
    return found;
}

}  // namespace kit
