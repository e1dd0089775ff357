// Spectra as a sensor's bands see them. The library weighs values by a band's response, with one weight array for all
// bands and no result for small sums; here it is asked for one band at a time, with values brought into a range that it
// takes.
#pragma once

#include <memory>
#include <vector>

#include "spectra/sensor.hpp"
#include "spectra/speclib.hpp"

namespace kscli {

class BandConverter {
public:
    explicit BandConverter(std::vector<SensorBand> bands);
    ~BandConverter();
    BandConverter(const BandConverter&) = delete;
    BandConverter& operator=(const BandConverter&) = delete;

    /// A value for every band; masked where the spectrum does not tell. Values that are marked as bad count as absent.
    LibrarySpectrum convert(const LibrarySpectrum& spectrum);

    const std::vector<SensorBand>& bands() const { return bands_; }

    /// How many spectra had what for a band.
    struct Tally {
        int uncovered = 0;     // the response reaches to an end of the spectrum or past it
        int missing = 0;       // the spectrum's values under the response are masked
        int interpolated = 0;  // fewer values than a mean needs: the spectrum was interpolated
    };
    const std::vector<Tally>& tallies() const { return tallies_; }
    int converted() const { return converted_; }

private:
    class Grid;
    double convertBand(std::size_t band, const LibrarySpectrum& spectrum, Grid& grid);

    std::vector<SensorBand> bands_;
    std::vector<Tally> tallies_;
    int converted_ = 0;
    std::unique_ptr<Grid> grid_;
};

}  // namespace kscli
