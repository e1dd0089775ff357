// Shapes of table files on an image: where a user's polygons lie among the pixels. Shapes keep the coordinates of the
// image's map; a pixel is found through the inverse of its geotransform, so that a rotated image needs no care.
#include <ogrsf_frmts.h>

#include <gdal_alg.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <map>

#include "hostfile.hpp"
#include "kshost_app.h"
#include "rasterformats.hpp"
#include "report.hpp"
#include "text.hpp"

namespace kshost {
namespace {

using Geometry = std::unique_ptr<OGRGeometry>;
using Affine = std::array<double, 6>;

struct Shape {
    std::string name;
    Geometry geometry;
};

/// What coordinates without a coordinate system of their own mean.
enum class Meaning { own, geographic, pixels };

/// Shapes as a file gives them.
struct Table {
    std::vector<Shape> shapes;
    Meaning meaning = Meaning::own;
    std::unique_ptr<OGRSpatialReference> system;  // null when the file names none
};

struct Failed {
    std::string why;
};

// ---- reading ----

/// The first of the fields so named, whatever their case, or -1.
int fieldNamed(const OGRFeatureDefn& fields, std::initializer_list<const char*> names) {
    for (const char* name : names) {
        const int index = fields.GetFieldIndex(name);
        if (index >= 0) return index;
    }
    return -1;
}

int nameField(const OGRFeatureDefn& fields) {
    return fieldNamed(fields, {"name", "polygon", "region", "label", "class", "id"});
}

std::string nameOf(OGRFeature& feature, int field) {
    return field >= 0 && feature.IsFieldSetAndNotNull(field) ? asUtf8(feature.GetFieldAsString(field)) : std::string();
}

Geometry plain(const OGRGeometry& geometry) {
    Geometry copy(geometry.hasCurveGeometry() != 0 ? geometry.getLinearGeometry() : geometry.clone());
    if (copy == nullptr) throw Failed{"a curve cannot be followed"};
    copy->flattenTo2D();
    return copy;
}

void readGeometries(OGRLayer& layer, Table& table) {
    const int name = nameField(*layer.GetLayerDefn());
    for (const auto& feature : layer) {
        const OGRGeometry* geometry = feature->GetGeometryRef();
        if (geometry == nullptr || geometry->IsEmpty() != 0) continue;
        table.shapes.push_back({nameOf(*feature, name), plain(*geometry)});
    }
}

struct VertexFields {
    int x;
    int y;
    Meaning meaning;
};

VertexFields vertexFields(const OGRFeatureDefn& fields) {
    const auto found = [&fields](std::initializer_list<const char*> x, std::initializer_list<const char*> y,
                                 Meaning meaning) {
        return VertexFields{fieldNamed(fields, x), fieldNamed(fields, y), meaning};
    };
    for (const VertexFields& candidate : {found({"x", "easting"}, {"y", "northing"}, Meaning::own),
                                          found({"lon", "longitude"}, {"lat", "latitude"}, Meaning::geographic),
                                          found({"column", "col", "sample"}, {"line", "row"}, Meaning::pixels),
                                          // How GDAL names the columns of a table without a heading.
                                          found({"field_1"}, {"field_2"}, Meaning::own)})
        if (candidate.x >= 0 && candidate.y >= 0) return candidate;
    throw Failed{"a table of shapes has a column WKT, or columns x and y, lon and lat, or column and line"};
}

double coordinate(const OGRFeature& feature, int field) {
    const std::string text = feature.GetFieldAsString(field);
    if (const auto value = wholeNumber(text)) return *value;
    throw Failed{"vertex " + std::to_string(feature.GetFID()) + ": \"" + text + "\" is not a number"};
}

Geometry shapeOfVertices(const std::vector<OGRRawPoint>& vertices) {
    if (vertices.size() == 1) return std::make_unique<OGRPoint>(vertices[0].x, vertices[0].y);
    auto line = std::make_unique<OGRLinearRing>();
    for (const OGRRawPoint& vertex : vertices) line->addPoint(vertex.x, vertex.y);
    if (vertices.size() == 2) {
        auto open = std::make_unique<OGRLineString>();
        open->addSubLineString(line.get());
        return open;
    }
    line->closeRings();
    auto polygon = std::make_unique<OGRPolygon>();
    polygon->addRingDirectly(line.release());
    return polygon;
}

void readVertices(OGRLayer& layer, Table& table) {
    const VertexFields fields = vertexFields(*layer.GetLayerDefn());
    const int group = fieldNamed(*layer.GetLayerDefn(), {"polygon", "region", "id", "name", "label", "class"});
    const int name = nameField(*layer.GetLayerDefn());
    struct Group {
        std::string name;
        std::vector<OGRRawPoint> vertices;
    };
    std::vector<Group> groups;
    std::map<std::string, std::size_t> known;
    for (const auto& feature : layer) {
        const auto [entry, isNew] = known.emplace(nameOf(*feature, group), groups.size());
        if (isNew) groups.push_back({nameOf(*feature, name), {}});
        groups[entry->second].vertices.emplace_back(coordinate(*feature, fields.x), coordinate(*feature, fields.y));
    }
    for (Group& one : groups) table.shapes.push_back({std::move(one.name), shapeOfVertices(one.vertices)});
    table.meaning = fields.meaning;
}

const char* driverFor(const std::string& path) {
    const std::size_t dot = path.find_last_of("./");
    const std::string extension = dot != std::string::npos ? lowered(path.substr(dot)) : std::string();
    if (extension == ".json" || extension == ".geojson") return "GeoJSON";
    if (extension == ".shp") return "ESRI Shapefile";
    if (extension == ".csv") return "CSV";
    throw Failed{"shapes are read from GeoJSON (.json, .geojson), ESRI Shapefiles (.shp) and tables (.csv)"};
}

Table readTable(const std::string& path) {
    registerFormats();
    const std::array<const char*, 2> drivers = {driverFor(path), nullptr};
    const GdalMessages messages;
    const GdalDataset dataset(
        GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, drivers.data(), nullptr, nullptr));
    OGRLayer* layer = dataset != nullptr && dataset->GetLayerCount() > 0 ? dataset->GetLayer(0) : nullptr;
    if (layer == nullptr) throw Failed{messages.text(std::string("it is not a file of format ") + drivers[0])};
    Table table;
    if (layer->GetGeomType() == wkbNone) {
        readVertices(*layer, table);
    } else {
        readGeometries(*layer, table);
    }
    if (const OGRSpatialReference* system = layer->GetSpatialRef()) table.system.reset(system->Clone());
    const std::string trouble = messages.text("");
    if (!trouble.empty()) throw Failed{trouble};
    if (table.shapes.empty()) throw Failed{"it holds no shapes"};
    return table;
}

// ---- bringing shapes to the image ----

OGREnvelope envelopeOf(const std::vector<Shape>& shapes) {
    OGREnvelope all;
    for (const Shape& shape : shapes) {
        OGREnvelope one;
        shape.geometry->getEnvelope(&one);
        if (!std::isfinite(one.MinX + one.MaxX + one.MinY + one.MaxY))
            throw Failed{"a shape has a coordinate that is not a number"};
        all.Merge(one);
    }
    return all;
}

/// GeoJSON counts as longitude and latitude unless it says otherwise, which files of other coordinates often fail to
/// do.
bool isNowhereOnEarth(const Table& table) {
    if (table.system == nullptr || table.system->IsGeographic() == 0) return false;
    const OGREnvelope all = envelopeOf(table.shapes);
    constexpr double kMost = 360.0;
    return all.MinX < -kMost || all.MaxX > kMost || all.MinY < -kMost || all.MaxY > kMost;
}

void transform(Table& table, const std::string& imageWkt) {
    if (table.system == nullptr && table.meaning == Meaning::geographic) {
        table.system = std::make_unique<OGRSpatialReference>();
        table.system->SetWellKnownGeogCS("WGS84");
    }
    if (table.system == nullptr || imageWkt.empty()) return;
    OGRSpatialReference image;
    if (image.importFromWkt(imageWkt.c_str()) != OGRERR_NONE)
        throw Failed{"the image's coordinate system is not understood"};
    for (OGRSpatialReference* system : {table.system.get(), &image})
        system->SetAxisMappingStrategy(OAMS_TRADITIONAL_GIS_ORDER);
    if (image.IsSame(table.system.get()) != 0) return;
    const GdalMessages messages;
    const std::unique_ptr<OGRCoordinateTransformation> change(
        OGRCreateCoordinateTransformation(table.system.get(), &image));
    const char* const kNone = "the shapes cannot be brought to the image's coordinate system";
    if (change == nullptr) throw Failed{messages.text(kNone)};
    for (Shape& shape : table.shapes)
        if (shape.geometry->transform(change.get()) != OGRERR_NONE) throw Failed{messages.text(kNone)};
}

Affine inverse(Affine map) {
    Affine back{};
    if (GDALInvGeoTransform(map.data(), back.data()) == 0) throw Failed{"the image's geotransform has no inverse"};
    return back;
}

OGRRawPoint applied(const Affine& map, double x, double y) {
    return {map[0] + x * map[1] + y * map[2], map[3] + x * map[4] + y * map[5]};
}

/// From the map to the pixels of a window, in the form in which GDAL asks for it.
struct ToWindow {
    Affine toPixels;
    int xOff;
    int yOff;
};

int transformToWindow(void* context, int, int count, double* x, double* y, double*, int* success) {
    const ToWindow& to = *static_cast<const ToWindow*>(context);
    for (int i = 0; i < count; ++i) {
        const OGRRawPoint pixel = applied(to.toPixels, x[i], y[i]);
        x[i] = pixel.x - to.xOff;
        y[i] = pixel.y - to.yOff;
        success[i] = 1;
    }
    return 1;
}

/// The whole pixels that [low, high] reaches, of `size`: false when there are none.
bool reached(double low, double high, int size, int& offset, int& length) {
    if (!(high >= 0) || !(low < size)) return false;
    offset = static_cast<int>(std::floor(std::max(low, 0.0)));
    length = static_cast<int>(std::floor(std::min(high, size - 1.0))) - offset + 1;
    return length > 0;
}

/// A data set whose only band is the caller's array.
GdalDataset wrapped(unsigned char* mask, int width, int height) {
    GDALDriver* memory = GetGDALDriverManager()->GetDriverByName("MEM");
    GdalDataset dataset(memory != nullptr ? memory->Create("", width, height, 0, GDT_Byte, nullptr) : nullptr);
    if (dataset == nullptr) throw Failed{"there is no memory for a mask"};
    char address[64] = {};
    CPLPrintPointer(address, mask, static_cast<int>(sizeof address) - 1);
    const std::string option = std::string("DATAPOINTER=") + address;
    const std::array<const char*, 2> options = {option.c_str(), nullptr};
    if (dataset->AddBand(GDT_Byte, const_cast<char**>(options.data())) != CE_None)
        throw Failed{"there is no memory for a mask"};
    return dataset;
}

}  // namespace
}  // namespace kshost

struct KSHostShapes {
    std::vector<kshost::Shape> shapes;
    kshost::Affine toPixels{};
    int width = 0;
    int height = 0;

    const kshost::Shape* at(int index) const {
        return index >= 0 && static_cast<std::size_t>(index) < shapes.size() ? &shapes[static_cast<std::size_t>(index)]
                                                                             : nullptr;
    }
};

namespace kshost {
namespace {

std::unique_ptr<KSHostShapes> openShapes(const std::string& path, HostFile& file, bool pixels) {
    Table table = readTable(path);
    const Georeference& place = file.store->georeference();
    auto shapes = std::make_unique<KSHostShapes>();
    shapes->width = file.raster->facts().width;
    shapes->height = file.raster->facts().height;
    if (pixels || table.meaning == Meaning::pixels || !place.transform) {
        shapes->toPixels = {0, 1, 0, 0, 0, 1};
    } else {
        if (!place.wkt.empty() && isNowhereOnEarth(table)) {
            reportNotice(path + ": its coordinates are no longitudes and latitudes; they are taken as coordinates of " +
                         file.name + ".");
        } else {
            transform(table, place.wkt);
        }
        shapes->toPixels = inverse(*place.transform);
    }
    envelopeOf(table.shapes);  // refuses what no pixel can be told for
    shapes->shapes = std::move(table.shapes);
    return shapes;
}

bool windowOf(const KSHostShapes& shapes, const Shape& shape, int* window) {
    OGREnvelope map;
    shape.geometry->getEnvelope(&map);
    OGREnvelope pixels;
    for (const double x : {map.MinX, map.MaxX})
        for (const double y : {map.MinY, map.MaxY}) {
            const OGRRawPoint corner = applied(shapes.toPixels, x, y);
            pixels.Merge(corner.x, corner.y);
        }
    return reached(pixels.MinX, pixels.MaxX, shapes.width, window[0], window[2]) &&
           reached(pixels.MinY, pixels.MaxY, shapes.height, window[1], window[3]);
}

void rasterize(const KSHostShapes& shapes, const Shape& shape, bool allTouched, const int* window,
               unsigned char* mask) {
    const GdalMessages messages;
    const GdalDataset target = wrapped(mask, window[2], window[3]);
    ToWindow to{shapes.toPixels, window[0], window[1]};
    int band = 1;
    OGRGeometryH geometry = OGRGeometry::ToHandle(shape.geometry.get());
    double inside = 1.0;
    const std::array<const char*, 2> options = {allTouched ? "ALL_TOUCHED=TRUE" : "ALL_TOUCHED=FALSE", nullptr};
    const CPLErr result =
        GDALRasterizeGeometries(GDALDataset::ToHandle(target.get()), 1, &band, 1, &geometry, transformToWindow, &to,
                                &inside, const_cast<char**>(options.data()), nullptr, nullptr);
    if (result != CE_None) throw Failed{messages.text("the shape cannot be drawn")};
    target->FlushCache(false);
}

/// Runs a body whose Failed becomes a report.
template <class R, class Body>
R told(const char* caller, const char* subject, R failure, Body body) {
    return guarded(caller, failure, [&]() -> R {
        try {
            return body();
        } catch (const Failed& failed) {
            reportFailure(std::string(caller) + ": " + (subject != nullptr ? subject : "-") + ": " + failed.why);
            return failure;
        }
    });
}

}  // namespace
}  // namespace kshost

KSHostShapes* KSHostOpenShapes(const char* szFileName, HostFile* fp, int bPixels) {
    constexpr const char* kCaller = "KSHostOpenShapes ()";
    KSHostShapes* shapes = kshost::told<KSHostShapes*>(kCaller, szFileName, nullptr, [=]() -> KSHostShapes* {
        if (szFileName == nullptr) throw kshost::Failed{"no file name given"};
        HostFile* file = kshost::live(fp, kCaller);
        if (file == nullptr) return nullptr;
        if (file->raster == nullptr) throw kshost::Failed{file->name + " holds no image"};
        return kshost::openShapes(szFileName, *file, bPixels != 0).release();
    });
    if (shapes == nullptr) kshost::abandonIfTrapped();
    return shapes;
}

void KSHostCloseShapes(KSHostShapes* pShapes) { delete pShapes; }

int KSHostShapeCount(const KSHostShapes* pShapes) {
    return pShapes != nullptr ? static_cast<int>(pShapes->shapes.size()) : 0;
}

const char* KSHostShapeName(const KSHostShapes* pShapes, int nShape) {
    const kshost::Shape* shape = pShapes != nullptr ? pShapes->at(nShape) : nullptr;
    return shape != nullptr ? shape->name.c_str() : "";
}

int KSHostShapeWindow(const KSHostShapes* pShapes, int nShape, int anWindow[4]) {
    return kshost::guarded("KSHostShapeWindow ()", 0, [=] {
        const kshost::Shape* shape = pShapes != nullptr ? pShapes->at(nShape) : nullptr;
        return shape != nullptr && anWindow != nullptr && kshost::windowOf(*pShapes, *shape, anWindow) ? 1 : 0;
    });
}

int KSHostRasterizeShape(const KSHostShapes* pShapes, int nShape, int bAllTouched, const int anWindow[4],
                         unsigned char* pbyMask) {
    constexpr const char* kCaller = "KSHostRasterizeShape ()";
    const int done = kshost::told(kCaller, nullptr, 0, [=] {
        const kshost::Shape* shape = pShapes != nullptr ? pShapes->at(nShape) : nullptr;
        if (shape == nullptr) throw kshost::Failed{"there is no such shape"};
        if (anWindow == nullptr || pbyMask == nullptr || anWindow[2] < 1 || anWindow[3] < 1)
            throw kshost::Failed{"no window or no mask given"};
        kshost::rasterize(*pShapes, *shape, bAllTouched != 0, anWindow, pbyMask);
        return 1;
    });
    if (done == 0) kshost::abandonIfTrapped();
    return done;
}
