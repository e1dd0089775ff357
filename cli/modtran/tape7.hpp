// The spectral table of a MODTRAN4 tape7 file. Columns that a run did not compute are blank there, names come in one
// line or two, and lines may be longer than a reader expects that counts numbers from the left. So a number belongs to
// the name under whose end it ends, and counting serves where every row is complete.
#pragma once

#include <string>
#include <vector>

namespace kscli {

enum class Tape7Unit { none, depth, radiance, irradiance, kelvin };

struct Tape7Column {
    std::string name;  // "TOTAL_RAD", "H2O TRANS"
    Tape7Unit unit = Tape7Unit::none;
    std::vector<double> values;  // not-a-number where the columns are blank
};

struct Tape7Table {
    std::vector<double> wavenumbers;  // per centimetre
    std::vector<Tape7Column> columns;
    /// Why counting the numbers of a row would give them to the wrong columns; empty where it would not.
    std::vector<std::string> uncountable;
    bool isClosed = false;  // by a negative wavenumber

    int column(const std::string& name) const;
};

/// All tables of a file, one a run. Throws a Failure where a number cannot be given to a column for certain.
std::vector<Tape7Table> readTape7(const std::string& file);

/// Nanometres.
double wavelengthOf(double wavenumber);
/// What a radiance or irradiance per wavenumber, in W and cm-1, is per nanometre, in microwatts.
double perNanometre(double value, double wavenumber);

}  // namespace kscli
