#include "scene/scene.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include "app/random.hpp"

namespace kscli {
namespace {

constexpr double kPi = 3.14159265358979323846;

// ---- numbers from the seed ----

// The sum of four uniform numbers, scaled to mean 0 and variance 1: near enough to a normal one, cheap, and bounded.
double nearlyNormal(std::uint64_t bits) {
    const std::uint64_t sum = (bits & 0xFFFFU) + ((bits >> 16U) & 0xFFFFU) + ((bits >> 32U) & 0xFFFFU) + (bits >> 48U);
    constexpr double kMean = 2 * 65535.0;
    const double deviation = 65536.0 / std::sqrt(3.0);
    return (static_cast<double>(sum) - kMean) / deviation;
}

enum Purpose : std::uint64_t { kPatches = 1, kNoise, kTrendShape, kVariant };

// ---- spectra ----

double gaussian(double nm, double centre, double sigma) {
    return std::exp(-0.5 * (nm - centre) * (nm - centre) / (sigma * sigma));
}
double edge(double nm, double centre, double width) { return 1 / (1 + std::exp(-(nm - centre) / width)); }
// Bound water, as in leaves and moist soil.
double leafWater(double nm) {
    return 0.06 * gaussian(nm, 975, 30) + 0.12 * gaussian(nm, 1195, 40) + 0.55 * gaussian(nm, 1445, 70) +
           0.70 * gaussian(nm, 1935, 80) + 0.55 * edge(nm, 2150, 200);
}

double vegetation(double nm) {
    const double pigments = 0.035 + 0.075 * gaussian(nm, 553, 38);
    return pigments + 0.47 * edge(nm, 716, 14) * (1 - 0.92 * std::min(1.0, leafWater(nm)));
}
double drySoil(double nm) {
    const double slope = 0.06 + 0.36 * (1 - std::exp(-std::max(0.0, nm - 350) / 650));
    return slope * (1 - 0.10 * gaussian(nm, 480, 40) - 0.06 * gaussian(nm, 870, 70) - 0.12 * gaussian(nm, 1415, 30) -
                    0.22 * gaussian(nm, 1915, 40) - 0.14 * gaussian(nm, 2205, 22));
}
double water(double nm) { return 0.004 + 0.055 * gaussian(nm, 520, 90) * (1 - edge(nm, 690, 25)); }
double redRoof(double nm) {
    return (0.05 + 0.27 * edge(nm, 585, 22) + 0.10 * edge(nm, 1000, 160)) * (1 - 0.16 * gaussian(nm, 870, 70)) -
           0.03 * gaussian(nm, 1920, 50);
}
double asphalt(double nm) {
    return 0.055 + 0.06 * (nm - 350) / 2150 + 0.012 * edge(nm, 560, 40) - 0.012 * gaussian(nm, 2310, 30);
}
double concrete(double nm) {
    return (0.18 + 0.16 * edge(nm, 500, 90)) *
           (1 - 0.06 * gaussian(nm, 1420, 30) - 0.15 * gaussian(nm, 1925, 45) - 0.13 * gaussian(nm, 2335, 30));
}
double dryGrass(double nm) {
    return (0.07 + 0.40 * edge(nm, 640, 110)) * (1 - 0.25 * gaussian(nm, 1450, 60) - 0.35 * gaussian(nm, 1930, 65) -
                                                 0.25 * gaussian(nm, 2100, 60) - 0.20 * gaussian(nm, 2310, 40));
}
double sand(double nm) {
    return 0.10 + 0.45 * (1 - std::exp(-std::max(0.0, nm - 350) / 420)) - 0.06 * gaussian(nm, 1415, 25) -
           0.10 * gaussian(nm, 1915, 35);
}
double conifer(double nm) { return 0.6 * vegetation(nm) + 0.004; }
double metalRoof(double nm) { return 0.52 - 0.10 * gaussian(nm, 840, 120) + 0.05 * edge(nm, 1500, 300); }
double clay(double nm) {
    return (0.10 + 0.42 * edge(nm, 600, 75)) * (1 - 0.20 * gaussian(nm, 880, 75) - 0.20 * gaussian(nm, 1412, 20) -
                                                0.25 * gaussian(nm, 1912, 32) - 0.30 * gaussian(nm, 2206, 18));
}
double limestone(double nm) {
    return (0.40 + 0.22 * edge(nm, 480, 80)) * (1 - 0.08 * gaussian(nm, 1910, 35) - 0.22 * gaussian(nm, 2338, 26));
}

struct Material {
    const char* name;
    double (*reflectance)(double nm);
};
constexpr std::array<Material, kMostMaterials> kMaterials = {{{"vegetation", vegetation},
                                                              {"dry soil", drySoil},
                                                              {"water", water},
                                                              {"red roof", redRoof},
                                                              {"asphalt", asphalt},
                                                              {"concrete", concrete},
                                                              {"dry grass", dryGrass},
                                                              {"sand", sand},
                                                              {"conifer", conifer},
                                                              {"metal roof", metalRoof},
                                                              {"clay", clay},
                                                              {"limestone", limestone}}};

// ---- light ----

// Irradiance outside the atmosphere in uW cm-2 nm-1: a black body of the sun's temperature and size.
double solarIrradiance(double nm) {
    constexpr double kPlanck = 6.62607015e-34;
    constexpr double kLight = 2.99792458e8;
    constexpr double kBoltzmann = 1.380649e-23;
    constexpr double kSunKelvin = 5772;
    constexpr double kSunRadius = 6.957e8;
    constexpr double kSunDistance = 1.495978707e11;
    const double metres = nm * 1e-9;
    const double radiance = 2 * kPlanck * kLight * kLight / std::pow(metres, 5) /
                            std::expm1(kPlanck * kLight / (metres * kBoltzmann * kSunKelvin));
    const double solidAngle = kPi * (kSunRadius / kSunDistance) * (kSunRadius / kSunDistance);
    constexpr double kToMicrowattPerSquareCentimetreAndNanometre = 1e-9 * 100;
    return radiance * solidAngle * kToMicrowattPerSquareCentimetreAndNanometre;
}

double scattering(double nm) {
    const double micrometres = nm / 1000;
    return 0.0088 * std::pow(micrometres, -4.05);
}

// Optical depths for a vertical path: of the scene's water vapour, and of all gases.
double waterAbsorption(double nm) {
    return 0.12 * gaussian(nm, 820, 10) + 0.75 * gaussian(nm, 938, 18) + 0.95 * gaussian(nm, 1132, 22) +
           7.0 * gaussian(nm, 1380, 28) + 8.0 * gaussian(nm, 1885, 32);
}
double absorption(double nm) {
    return waterAbsorption(nm) + 0.55 * gaussian(nm, 761, 4) + 0.10 * gaussian(nm, 688, 4) +
           0.45 * gaussian(nm, 2010, 12) + 0.20 * gaussian(nm, 2060, 12) +
           0.03 * edge(nm, 2380, 40) * std::max(0.0, nm - 2350) / 10;
}

double haze(double nm) { return 0.12 * std::pow(nm / 550, -1.3); }

double transmission(double nm, double airMass) {
    return std::exp(-(scattering(nm) + haze(nm) + absorption(nm)) * airMass);
}

// ---- patches ----

double smooth(double t) { return t * t * t * (t * (6 * t - 15) + 10); }

// A smooth random surface with values 0..1 and features of about one unit.
double valueNoise(std::uint64_t seed, std::int64_t layer, double x, double y) {
    const double column = std::floor(x);
    const double row = std::floor(y);
    const auto corner = [&](double dx, double dy) {
        const auto cellRow = static_cast<std::uint64_t>(static_cast<std::int64_t>(row + dy));
        const auto cellColumn = static_cast<std::uint64_t>(static_cast<std::int64_t>(column + dx));
        const auto cell = static_cast<std::int64_t>((cellRow << 32U) ^ cellColumn);
        return unit(hash(seed, kPatches, layer, cell));
    };
    const double u = smooth(x - column);
    const double v = smooth(y - row);
    const double top = corner(0, 0) * (1 - u) + corner(1, 0) * u;
    const double bottom = corner(0, 1) * (1 - u) + corner(1, 1) * u;
    return top * (1 - v) + bottom * v;
}

double patches(std::uint64_t seed, int material, double x, double y) {
    constexpr int kOctaves = 4;
    double sum = 0;
    double weight = 1;
    double total = 0;
    for (int octave = 0; octave < kOctaves; ++octave) {
        sum += weight * valueNoise(seed, material * kOctaves + octave, x, y);
        total += weight;
        weight *= 0.5;
        // Each octave is turned by the angle of a 3-4-5 triangle, so that the lattices do not line up.
        const double turnedX = 2 * (0.8 * x - 0.6 * y);
        y = 2 * (0.6 * x + 0.8 * y);
        x = turnedX;
    }
    return sum / total;
}

}  // namespace

Scene::Scene(const SceneParameters& parameters) : parameters_(parameters) {
    patchSize_ = std::max(4.0, std::min(parameters.width, parameters.height) / 5.0);
    makeBands();
    makeMaterials();
    makeLight();
    makeTrend();
    makeCalibration();
}

void Scene::makeBands() {
    constexpr double kFirstNm = 400;
    constexpr double kLastNm = 2500;
    const int count = parameters_.bands;
    const double step = count > 1 ? (kLastNm - kFirstNm) / (count - 1) : 10;
    for (int band = 0; band < count; ++band) {
        wavelengths_.push_back(count > 1 ? kFirstNm + band * step : 650);
        fwhm_.push_back(1.1 * step + 0.05 * step * std::sin(0.05 * band));
        const double nm = wavelengths_.back();
        opaque_.push_back((nm >= 1340 && nm <= 1430) || (nm >= 1810 && nm <= 1950));
    }
}

void Scene::makeMaterials() {
    for (int material = 0; material < parameters_.materials; ++material) {
        const Material& m = kMaterials[index(material)];
        names_.emplace_back(m.name);
        // Each seed has its own variant of a material, a little brighter or darker.
        const double brightness = 0.85 + 0.3 * unit(hash(parameters_.seed, kVariant, material, 0));
        std::vector<double> spectrum;
        for (double nm : wavelengths_) spectrum.push_back(std::clamp(brightness * m.reflectance(nm), 0.001, 0.95));
        endmembers_.push_back(std::move(spectrum));
    }
}

void Scene::makeLight() {
    const double cosSun = std::cos(kSceneSunZenithDeg * kPi / 180);
    for (double nm : wavelengths_) {
        const double downAndUp = transmission(nm, 1 / cosSun + 1);
        white_.push_back(solarIrradiance(nm) * cosSun * downAndUp / kPi);
        const double scattered = 1 - std::exp(-(scattering(nm) + 0.3 * haze(nm)) / cosSun);
        path_.push_back(0.25 * solarIrradiance(nm) * cosSun / kPi * scattered * transmission(nm, 0.5) *
                        std::exp(-absorption(nm) * (1 / cosSun + 0.5)));
    }
}

double Scene::throughWater(int band, double water) const {
    const double airMass = 1 / std::cos(kSceneSunZenithDeg * kPi / 180) + 1;
    return std::exp(-waterAbsorption(wavelength(band)) * (water / kSceneWater - 1) * airMass);
}

void Scene::makeTrend() {
    const double slope = 0.10 * (unit(hash(parameters_.seed, kTrendShape, 0, 0)) - 0.5) * 2;
    const double bow = 0.06 + 0.08 * unit(hash(parameters_.seed, kTrendShape, 1, 0));
    for (int column = 0; column < parameters_.width; ++column) {
        const double t = parameters_.width > 1 ? 2.0 * column / (parameters_.width - 1) - 1 : 0;
        trend_.push_back(1 + slope * t - bow * t * t);
    }
}

void Scene::makeCalibration() {
    // The brightest surface fills about two thirds of the range; a dark level keeps noise from being cut off at 0.
    constexpr double kFullScale = 65535;
    constexpr double kDarkLevel = 0.01 * kFullScale;
    for (int band = 0; band < parameters_.bands; ++band) {
        const double brightest = white_[index(band)] + path_[index(band)];
        const double gain = std::max(brightest, 0.02) / (0.65 * kFullScale) * (1 + 0.05 * std::sin(0.7 * band));
        gains_.push_back(static_cast<float>(gain));
        offsets_.push_back(static_cast<float>(-gain * kDarkLevel));
    }
}

double Scene::noise(int band, double radiance) const {
    const double dark = 0.0008 + 6 * static_cast<double>(gains_[index(band)]);
    return std::sqrt(dark * dark + 2.5e-5 * std::max(0.0, radiance));
}

void Scene::fractions(int column, int line, float* fractions) const {
    // A soft maximum over smooth surfaces: patches of nearly pure materials with mixed borders.
    constexpr double kSharpness = 28;
    std::array<double, kMostMaterials> weights{};
    const double x = (column + 0.5) / patchSize_;
    const double y = (line + 0.5) / patchSize_;
    double highest = 0;
    for (int m = 0; m < parameters_.materials; ++m) {
        weights[index(m)] = patches(parameters_.seed, m, x, y);
        highest = std::max(highest, weights[index(m)]);
    }
    double sum = 0;
    for (int m = 0; m < parameters_.materials; ++m) {
        weights[index(m)] = std::exp(kSharpness * (weights[index(m)] - highest));
        sum += weights[index(m)];
    }
    for (int m = 0; m < parameters_.materials; ++m) fractions[m] = static_cast<float>(weights[index(m)] / sum);
}

void Scene::samples(int column, int line, const float* fractions, float* samples) const {
    const double brightness = trend_[index(column)];
    for (int band = 0; band < parameters_.bands; ++band) {
        const std::size_t b = index(band);
        double reflectance = 0;
        for (int m = 0; m < parameters_.materials; ++m) {
            reflectance += static_cast<double>(fractions[m]) * endmembers_[index(m)][b];
        }
        const double radiance = brightness * (white_[b] * reflectance + path_[b]);
        const std::int64_t pixel = static_cast<std::int64_t>(line) * parameters_.width + column;
        const double noisy =
            radiance + noise(band, radiance) * nearlyNormal(hash(parameters_.seed, kNoise, pixel, band));
        const double stored = (noisy - static_cast<double>(offsets_[b])) / static_cast<double>(gains_[b]);
        samples[band] = static_cast<float>(std::clamp(std::floor(stored + 0.5), 0.0, 65535.0));
    }
}

}  // namespace kscli
