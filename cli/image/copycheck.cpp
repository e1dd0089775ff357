#include "image/copycheck.hpp"

#include <cmath>
#include <cstring>
#include <memory>

#include "image/bands.hpp"
#include "image/entries.hpp"

namespace kscli {
namespace {

constexpr std::size_t kMostProblems = 20;
// Geotransforms pass through texts with limited digits in some formats.
constexpr double kPlaceTolerance = 1e-9;

class Checker {
public:
    Checker(const DataSet& source, const CopyPlan& plan, const DataSet& copy)
        : source_(source), plan_(plan), copy_(copy) {}

    CopyCheck run() {
        compareShape();
        if (!result_.problems.empty()) return result_;
        compareMission();
        compareBands();
        compareEntries();
        comparePlace();
        compareNoData();
        compareSamples();
        return result_;
    }

private:
    template <class... Args>
    void problem(fmt::format_string<Args...> format, Args&&... args) {
        if (result_.problems.size() < kMostProblems) {
            result_.problems.push_back(fmt::format(format, std::forward<Args>(args)...));
        }
    }

    template <class T>
    void same(const char* what, const T& expected, const T& found) {
        if (!(expected == found)) problem("{}: {} instead of {}", what, found, expected);
    }

    void compareShape() {
        same("width", plan_.area.columns, copy_->nXSize);
        same("height", plan_.area.rows, copy_->nYSize);
        same("bands", static_cast<int>(plan_.bands.size()), copy_.bandCount());
        same("transforms", source_->nNumRadTrans - plan_.level, copy_->nNumRadTrans);
    }

    void compareMission() {
        const auto name = [](const KSSensor& sensor) {
            return std::string(sensor.szModelName != nullptr ? sensor.szModelName : "");
        };
        same("sensor model", name(source_->Sensor), name(copy_->Sensor));
        same("sensor type", source_->Sensor.eType, copy_->Sensor.eType);
        same("field of view left", source_->Sensor.fFOVLeft, copy_->Sensor.fFOVLeft);
        same("field of view right", source_->Sensor.fFOVRight, copy_->Sensor.fFOVRight);
        same("field of view fore", source_->Sensor.fFOVFore, copy_->Sensor.fFOVFore);
        same("field of view aft", source_->Sensor.fFOVAft, copy_->Sensor.fFOVAft);
        const KSMission& a = source_->Mission;
        const KSMission& b = copy_->Mission;
        same("year", a.nYear, b.nYear);
        same("month", a.nMonth, b.nMonth);
        same("day", a.nDay, b.nDay);
        same("hour", a.nHour, b.nHour);
        same("minute", a.nMinute, b.nMinute);
        same("latitude", a.dLatitude, b.dLatitude);
        same("longitude", a.dLongitude, b.dLongitude);
        same("height of flight", a.fHeight, b.fHeight);
        same("heading", a.fHeading, b.fHeading);
        same("tilt", a.fForeAftTilt, b.fForeAftTilt);
    }

    void compareBands() {
        for (std::size_t i = 0; i < plan_.bands.size(); ++i) {
            const int band = plan_.bands[i];
            const int copied = static_cast<int>(i);
            const KSBandResp& a = source_->Sensor.pBandResp[band];
            const KSBandResp& b = copy_->Sensor.pBandResp[copied];
            const bool same = a.eRespType == b.eRespType && a.fCentre == b.fCentre && a.fFWHM == b.fFWHM;
            if (!same) {
                problem("band {}: response {} nm, FWHM {} instead of {} nm, FWHM {}", i + 1, b.fCentre, b.fFWHM,
                        a.fCentre, a.fFWHM);
            }
            if (source_->Sensor.peBandQual[band] != copy_->Sensor.peBandQual[copied]) {
                problem("band {}: quality {} instead of {}", i + 1, copy_.qualityName(copied),
                        source_.qualityName(band));
            }
            for (int k = 0; k < copy_->nNumRadTrans; ++k) compareTransform(k, band, copied);
        }
    }

    void compareTransform(int k, int band, int copied) {
        const KSRadTrans& a = *source_->papRadTransSeq[k + plan_.level];
        const KSRadTrans& b = *copy_->papRadTransSeq[k];
        if (a.eRadQuant != b.eRadQuant || a.pafGains[band] != b.pafGains[copied] ||
            a.pafOffsets[band] != b.pafOffsets[copied]) {
            problem("band {}: transform {} has gain {}, offset {} instead of {}, {}", copied + 1, k + 1,
                    b.pafGains[copied], b.pafOffsets[copied], a.pafGains[band], a.pafOffsets[band]);
        }
    }

    void compareList(const std::string& where, const Items& expected, const Entries& found) {
        for (const auto& [key, value] : expected) {
            const char* text = found.find(key);
            ++result_.entries;
            if (text == nullptr) {
                problem("{}: entry '{}' is missing", where, key);
            } else if (value != text) {
                problem("{}: entry '{}' is '{}' instead of '{}'", where, key, text, value);
            }
        }
    }

    void compareEntries() {
        compareList("file", fileEntriesOfCopy(source_, plan_), Entries::ofFile(copy_.file()));
        for (std::size_t i = 0; i < plan_.bands.size(); ++i) {
            compareList(fmt::format("band {}", i + 1), channelEntriesOfCopy(source_, plan_, plan_.bands[i]),
                        Entries::ofChannel(copy_.file(), copy_.channel(static_cast<int>(i))));
        }
    }

    void comparePlace() {
        double a[6] = {};
        double b[6] = {};
        const int hasA = KSHostGetGeoTransform(source_.file(), a);
        const int hasB = KSHostGetGeoTransform(copy_.file(), b);
        const auto empty = [](const char* text) { return text == nullptr || *text == '\0'; };
        if (empty(KSHostGetCoordinateSystem(source_.file())) != empty(KSHostGetCoordinateSystem(copy_.file()))) {
            problem("the coordinate system was not kept");
        }
        if (hasA != hasB) problem("the place was not kept");
        if (hasA == 0 || hasB == 0) return;
        const double column = plan_.window[0];
        const double line = plan_.window[1];
        const double every = plan_.every;
        const double expected[6] = {a[0] + column * a[1] + line * a[2], a[1] * every, a[2] * every,
                                    a[3] + column * a[4] + line * a[5], a[4] * every, a[5] * every};
        const double scale = std::max({std::abs(a[0]), std::abs(a[3]), 1.0});
        for (int i = 0; i < 6; ++i) {
            if (!(std::abs(expected[i] - b[i]) <= kPlaceTolerance * scale)) {
                problem("geotransform value {}: {} instead of {}", i, b[i], expected[i]);
            }
        }
    }

    void compareNoData() {
        const auto expected = noDataOfCopy(source_, plan_);
        const auto found = noDataValues(copy_, allBands(copy_));
        for (std::size_t i = 0; i < expected.size(); ++i) {
            const bool bothNaN = expected[i] && found[i] && std::isnan(*expected[i]) && std::isnan(*found[i]);
            if (expected[i] != found[i] && !bothNaN) problem("band {}: the no-data value was not kept", i + 1);
        }
    }

    void compareSamples() {
        const SampleReader expected(source_, plan_.bands, plan_.level, SampleReader::NoData::asStored);
        const SampleFitter fitter(source_, plan_);
        constexpr double kWindows = 2;
        std::unique_ptr<Window> found;
        readBlocks(expected, plan_.area, 1 / kWindows, [&](int first, Window& window) {
            fitter.fit(window.samples(), window.pixelCount());
            if (!found) found = std::make_unique<Window>(window.columns(), window.rows(), 1, 1, allBands(copy_));
            found->resizeRows(window.rows());
            found->place(0, first);
            found->read(copy_, 0);
            count(window, *found);
        });
        if (result_.differing > 0) problem("{} of {} samples differ", result_.differing, result_.samples);
    }

    void count(Window& expected, Window& found) {
        const float* a = expected.samples();
        const float* b = found.samples();
        const std::size_t total = expected.sampleCount();
        result_.samples += total;
        if (std::memcmp(a, b, total * sizeof(float)) == 0) return;
        for (std::size_t i = 0; i < total; ++i) {
            const bool equal = a[i] == b[i] || (std::isnan(a[i]) && std::isnan(b[i]));
            result_.differing += equal ? 0U : 1U;
        }
    }

    const DataSet& source_;
    const CopyPlan& plan_;
    const DataSet& copy_;
    CopyCheck result_;
};

}  // namespace

CopyCheck checkCopy(const DataSet& source, const CopyPlan& plan, const std::string& copyName) {
    const DataSet copy = DataSet::open(copyName);
    return Checker(source, plan, copy).run();
}

}  // namespace kscli
