// A made-up but physically plausible scene: materials with smooth reflectance spectra, mixed in patches, lit by a sun
// through an absorbing atmosphere, seen by an instrument with an uneven swath, noise and a calibration.
// Everything follows from the seed through integer hashes, so that any part can be computed on its own, in any order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kscli {

struct SceneParameters {
    int width = 256;
    int height = 256;
    int bands = 224;
    int materials = 6;
    std::uint64_t seed = 1;
};

constexpr int kMostMaterials = 12;
/// The sun at the scene's time and place, and its column of water vapour in g/cm2.
constexpr double kSceneSunZenithDeg = 28.85;
constexpr double kSceneWater = 2;

class Scene {
public:
    explicit Scene(const SceneParameters& parameters);

    const SceneParameters& parameters() const { return parameters_; }
    const std::vector<std::string>& materialNames() const { return names_; }
    /// Of band b, in nanometres.
    double wavelength(int band) const { return wavelengths_[index(band)]; }
    double fwhm(int band) const { return fwhm_[index(band)]; }
    /// The atmosphere lets too little light through to measure anything.
    bool isOpaque(int band) const { return opaque_[index(band)]; }
    double reflectance(int material, int band) const { return endmembers_[index(material)][index(band)]; }
    /// Radiance of a perfectly white, level surface at the centre of the swath, and of a black one, in uW cm-2 sr-1
    /// nm-1.
    double whiteRadiance(int band) const { return white_[index(band)]; }
    double pathRadiance(int band) const { return path_[index(band)]; }
    /// What another column of water vapour lets through, of either of them, relative to the scene's own.
    double throughWater(int band, double water) const;
    /// The brightness of a column relative to the centre of the swath.
    double trend(int column) const { return trend_[index(column)]; }
    /// Calibration: radiance = gain * stored value + offset.
    float gain(int band) const { return gains_[index(band)]; }
    float offset(int band) const { return offsets_[index(band)]; }
    /// Standard deviation of the noise at a radiance.
    double noise(int band, double radiance) const;

    /// Fractions of all materials in a pixel: none negative, sum 1. `fractions` holds `materials` values.
    void fractions(int column, int line, float* fractions) const;
    /// Stored values 0..65535 of a pixel from its fractions. `samples` holds `bands` values.
    void samples(int column, int line, const float* fractions, float* samples) const;

private:
    static std::size_t index(int i) { return static_cast<std::size_t>(i); }
    void makeBands();
    void makeMaterials();
    void makeLight();
    void makeTrend();
    void makeCalibration();

    SceneParameters parameters_;
    std::vector<std::string> names_;
    std::vector<double> wavelengths_, fwhm_;
    std::vector<bool> opaque_;
    std::vector<std::vector<double>> endmembers_;
    std::vector<double> white_, path_, trend_;
    std::vector<float> gains_, offsets_;
    double patchSize_ = 1;
};

}  // namespace kscli
