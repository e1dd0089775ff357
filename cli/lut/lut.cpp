// ks lut: look-up tables, looked at, checked, drawn, exchanged as netCDF and interpolated.
#include "lut/commands.hpp"

namespace kscli {

void addLut(CLI::App& app, Command& chosen) {
    CLI::App* lut = app.add_subcommand("lut", "Look-up tables: info, check, plot, import, export, interp");
    lut->require_subcommand(1);
    lut->fallthrough();
    lut->footer(
        "A table lies in a file of its own, named .kslut by custom, or beside an image.\n"
        "One of nine labelled axes and two radiances an element is a radiance table, for\n"
        "'ks reflectance'.\n"
        "Example:\n  ks lut import --radiance lut.nc scene.kslut --altitude 4.2\n"
        "  ks lut check scene.kslut\n"
        "  ks lut interp scene.kslut --at water=2 --at view=9 --at range=20 --at refl=0.5");
    addLutInfo(*lut, chosen);
    addLutCheck(*lut, chosen);
    addLutPlot(*lut, chosen);
    addLutImport(*lut, chosen);
    addLutExport(*lut, chosen);
    addLutInterp(*lut, chosen);
}

}  // namespace kscli
