#include "geometry/angleimage.hpp"

#include <cmath>
#include <limits>

#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/components.hpp"
#include "image/copymeta.hpp"

namespace kscli {
namespace {

void complete(const DataSet& source, const AngleImage& image, HostFile* file) {
    Completion output(file);
    output.addFileEntries(fileEntriesOfComponents(source));
    for (std::size_t i = 0; i < image.bands.size(); ++i) {
        const int channel = static_cast<int>(i) + 1;
        std::string name = image.bands[i];
        GDBChanDescIO(file, 1, channel, name.data());
        KSHostSetNoData(file, channel, std::numeric_limits<double>::quiet_NaN());
    }
    output.addPlace(source, planWholeCopy(source, {}, kFloat32));
    output.addHistory(source, image.history);
}

}  // namespace

void writeAngleImage(const DataSet& source, const AngleImage& image,
                     const std::function<void(int firstRow, Window& window)>& fill) {
    refuseSourceFiles(source, image.input, image.output);
    Staging staging(image.output, image.force);
    staging.alsoMakes(companionsOf(image.output));
    DataSet output = describeComponents(source, static_cast<int>(image.bands.size()));
    output.create(staging.path(), kFloat32);
    const double bytes = static_cast<double>(image.bands.size() * sizeof(float)) + image.bytesPerPixel;
    const int rowsAtOnce = rowsPerBlock(bytes * source->nXSize, source->nYSize);
    Window window(source->nXSize, rowsAtOnce, 1, 1, allBands(output));
    forEachBlock(source->nYSize, rowsAtOnce, [&](int first, int count) {
        window.resizeRows(count);
        window.place(0, first);
        fill(first, window);
        window.write(output);
        requireComplete("the image of angles");
    });
    output.writeMetadata();
    complete(source, image, output.file());
    output.close();
    requireComplete("the image of angles");
    staging.publish();
    note("{}: {} x {} pixels, {} bands in degrees.", image.output, source->nXSize, source->nYSize, image.bands.size());
}

bool isTableName(const std::string& name) { return lowerExtension(name) == ".csv"; }

std::string angleText(double degrees) { return std::isnan(degrees) ? "" : fmt::format("{:.3f}", degrees); }

std::string azimuthText(double degrees) {
    const std::string text = angleText(degrees);
    return text == "360.000" ? "0.000" : text;
}

}  // namespace kscli
