// Shapes of table files on an image. Which pixels a polygon covers is worked out here from the pixel centres.
#include <gmock/gmock.h>

#include <ogrsf_frmts.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include "hostkit.hpp"

namespace hosttest {
namespace {

using testing::ElementsAre;

struct Vertex {
    double x;
    double y;
};

/// The even-odd rule.
bool isInside(const std::vector<Vertex>& polygon, double x, double y) {
    bool inside = false;
    for (std::size_t i = 0, j = polygon.size() - 1; i < polygon.size(); j = i++) {
        const Vertex& a = polygon[i];
        const Vertex& b = polygon[j];
        if ((a.y > y) != (b.y > y) && x < (b.x - a.x) * (y - a.y) / (b.y - a.y) + a.x) inside = !inside;
    }
    return inside;
}

using Mask = std::vector<unsigned char>;

class Polygons : public testing::Test {
protected:
    static constexpr int kWidth = 24;
    static constexpr int kHeight = 18;

    void SetUp() override {
        const std::array<int, 4> counts = {1, 0, 0, 0};
        image_ = IDBCreate((folder_ / "image.img").c_str(), kWidth, kHeight, counts.data(), "PIXEL");
        ASSERT_NE(image_, nullptr);
    }
    void TearDown() override {
        for (KSHostShapes* shapes : open_) KSHostCloseShapes(shapes);
        GDBClose(image_);
    }

    void place(const std::array<double, 6>& transform, const std::string& wkt = "") {
        ASSERT_EQ(KSHostSetGeoTransform(image_, transform.data()), 1);
        ASSERT_EQ(KSHostSetCoordinateSystem(image_, wkt.c_str()), 1);
    }
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(folder_ / name) << text;
        return folder_ / name;
    }
    std::string geoJson(const std::vector<Vertex>& polygon, const std::string& crs = "") const {
        std::ostringstream text;
        text.precision(17);
        text << R"({"type":"FeatureCollection",)";
        if (!crs.empty()) text << R"("crs":{"type":"name","properties":{"name":")" << crs << "\"}},";
        text << R"("features":[{"type":"Feature","properties":{"name":"field"},"geometry":)"
             << R"({"type":"Polygon","coordinates":[[)";
        for (const Vertex& v : polygon) text << "[" << v.x << "," << v.y << "],";
        text << "[" << polygon[0].x << "," << polygon[0].y << "]]]}}]}";
        return write("polygon.geojson", text.str());
    }
    KSHostShapes* open(const std::string& name, int pixels = 0) {
        KSHostShapes* shapes = KSHostOpenShapes(name.c_str(), image_, pixels);
        if (shapes != nullptr) open_.push_back(shapes);
        return shapes;
    }
    /// A shape on the whole image.
    static Mask draw(const KSHostShapes* shapes, int shape, int allTouched = 0) {
        const std::array<int, 4> window = {0, 0, kWidth, kHeight};
        Mask mask(std::size_t{kWidth} * kHeight, 0);
        EXPECT_EQ(KSHostRasterizeShape(shapes, shape, allTouched, window.data(), mask.data()), 1);
        return mask;
    }
    /// Pixels whose centre, moved by `toMap`, lies in a polygon.
    template <class ToMap>
    static Mask expected(const std::vector<Vertex>& polygon, ToMap toMap) {
        Mask mask;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                const Vertex at = toMap(x + 0.5, y + 0.5);
                mask.push_back(isInside(polygon, at.x, at.y) ? 1 : 0);
            }
        return mask;
    }
    static long count(const Mask& mask) { return std::count(mask.begin(), mask.end(), 1); }
    static Vertex same(double x, double y) { return {x, y}; }
    static Mask pixels(const std::vector<std::pair<int, int>>& set) {
        Mask mask(std::size_t{kWidth} * kHeight, 0);
        for (const auto& [x, y] : set) mask[static_cast<std::size_t>(y * kWidth + x)] = 1;
        return mask;
    }

    TemporaryFolder folder_;
    HostFile* image_ = nullptr;
    std::vector<KSHostShapes*> open_;
};

const std::vector<Vertex> kDart = {{3.2, 2.1}, {20.7, 6.3}, {9.4, 8.8}, {13.1, 16.2}};

TEST_F(Polygons, WithoutGeotransformCoordinatesArePixels) {
    const KSHostShapes* shapes = open(geoJson(kDart));
    ASSERT_NE(shapes, nullptr);
    EXPECT_EQ(KSHostShapeCount(shapes), 1);
    EXPECT_STREQ(KSHostShapeName(shapes, 0), "field");
    const Mask wanted = expected(kDart, same);
    ASSERT_GT(count(wanted), 40);
    EXPECT_EQ(draw(shapes, 0), wanted);
}

TEST_F(Polygons, WindowJustReachesTheShape) {
    const KSHostShapes* shapes = open(geoJson(kDart));
    std::array<int, 4> window{};
    ASSERT_EQ(KSHostShapeWindow(shapes, 0, window.data()), 1);
    EXPECT_THAT(window, ElementsAre(3, 2, 18, 15));  // columns 3 to 20, lines 2 to 16
    Mask part(static_cast<std::size_t>(window[2] * window[3]), 0);
    ASSERT_EQ(KSHostRasterizeShape(shapes, 0, 0, window.data(), part.data()), 1);
    const Mask whole = draw(shapes, 0);
    for (int y = 0; y < window[3]; ++y)
        for (int x = 0; x < window[2]; ++x)
            EXPECT_EQ(part[static_cast<std::size_t>(y * window[2] + x)],
                      whole[static_cast<std::size_t>((y + window[1]) * kWidth + x + window[0])]);
}

TEST_F(Polygons, MapCoordinatesFollowARotatedImage) {
    // Two metres a pixel, turned by 30 degrees.
    const double across = 2 * std::cos(0.5235987755982988);
    const double down = 2 * std::sin(0.5235987755982988);
    place({5000, across, down, 8000, down, -across});
    const auto toMap = [=](double x, double y) {
        return Vertex{5000 + across * x + down * y, 8000 + down * x - across * y};
    };
    std::vector<Vertex> onMap;
    for (const Vertex& v : kDart) onMap.push_back(toMap(v.x, v.y));
    const KSHostShapes* shapes = open(geoJson(onMap));
    ASSERT_NE(shapes, nullptr);
    EXPECT_EQ(draw(shapes, 0), expected(onMap, toMap));
    EXPECT_EQ(draw(open(geoJson(kDart), 1), 0), expected(kDart, same)) << "pixels asked for";
}

// On the equator at the central meridian of zone 33, with the ellipsoid's radii there: one degree of latitude is
// 0.9996 * 6335439.327 m * pi / 180, one of longitude 0.9996 * 6378137 m * pi / 180.
TEST_F(Polygons, LongitudesAndLatitudesAreProjected) {
    OGRSpatialReference utm;
    utm.importFromEPSG(32633);
    char* wkt = nullptr;
    utm.exportToWkt(&wkt);
    place({500000 - 120, 10, 0, 90, 0, -10}, wkt);
    CPLFree(wkt);
    const double metresPerLatitude = 0.9996 * 6335439.327 * M_PI / 180;
    const double metresPerLongitude = 0.9996 * 6378137.0 * M_PI / 180;
    std::vector<Vertex> onMap;
    std::vector<Vertex> onGlobe;
    for (const Vertex& v : kDart) {
        onMap.push_back({500000 - 120 + 10 * v.x, 90 - 10 * v.y});
        onGlobe.push_back({15 + (onMap.back().x - 500000) / metresPerLongitude, onMap.back().y / metresPerLatitude});
    }
    const Mask wanted = expected(kDart, same);
    EXPECT_EQ(draw(open(geoJson(onGlobe)), 0), wanted);
    EXPECT_EQ(draw(open(geoJson(onMap, "urn:ogc:def:crs:EPSG::32633")), 0), wanted);
    std::string table = "lon,lat\n";
    for (const Vertex& v : onGlobe) table += std::to_string(v.x) + "," + std::to_string(v.y) + "\n";
    EXPECT_EQ(draw(open(write("vertices.csv", table)), 0), wanted);
    // Metres that call themselves degrees.
    const Reports reports;
    EXPECT_EQ(draw(open(geoJson(onMap)), 0), wanted);
    ASSERT_EQ(reports.all.size(), 1U);
    EXPECT_EQ(reports.all[0].severity, 0);
    EXPECT_TRUE(reports.mention("no longitudes and latitudes"));
}

TEST_F(Polygons, TableOfVerticesHoldsSeveralShapes) {
    const KSHostShapes* shapes = open(write("v.csv",
                                            "polygon,x,y\nwood,1,1\nwood,5,1\nlake,10,10\nwood,5,4\nwood,1,4\n"
                                            "path,2.5,8.5\npath,6.5,8.5\n"));
    ASSERT_EQ(KSHostShapeCount(shapes), 3);
    EXPECT_STREQ(KSHostShapeName(shapes, 0), "wood");
    EXPECT_STREQ(KSHostShapeName(shapes, 1), "lake");
    EXPECT_STREQ(KSHostShapeName(shapes, 2), "path");
    EXPECT_STREQ(KSHostShapeName(shapes, 3), "");
    EXPECT_EQ(draw(shapes, 0),
              pixels({{1, 1}, {2, 1}, {3, 1}, {4, 1}, {1, 2}, {2, 2}, {3, 2}, {4, 2}, {1, 3}, {2, 3}, {3, 3}, {4, 3}}));
    EXPECT_EQ(draw(shapes, 1), pixels({{10, 10}}));
    EXPECT_EQ(draw(shapes, 2), pixels({{2, 8}, {3, 8}, {4, 8}, {5, 8}, {6, 8}}));
}

TEST_F(Polygons, TableOfPixelsNeedsNoMap) {
    place({5000, 2, 0, 8000, 0, -2});
    EXPECT_EQ(draw(open(write("p.csv", "Column,Line\n1,1\n3,1\n3,2\n1,2\n")), 0), pixels({{1, 1}, {2, 1}}));
    EXPECT_EQ(draw(open(write("m.csv", "x;y\n5002;7998\n5006;7998\n5006;7996\n5002;7996\n")), 0),
              pixels({{1, 1}, {2, 1}}));
}

TEST_F(Polygons, TableWithoutHeadingIsXAndY) {
    EXPECT_EQ(draw(open(write("p.csv", "1,1\n3,1\n3,2\n1,2\n")), 0), pixels({{1, 1}, {2, 1}}));
}

TEST_F(Polygons, WellKnownTextHasHolesAndParts) {
    const KSHostShapes* shapes =
        open(write("w.csv",
                   "WKT,name\n\"MULTIPOLYGON(((1 1,4 1,4 4,1 4,1 1),(2 2,3 2,3 3,2 3,2 2)),((7 7,8 7,8 8,7 8,7 7)))"
                   "\",ring\n"));
    ASSERT_EQ(KSHostShapeCount(shapes), 1);
    EXPECT_STREQ(KSHostShapeName(shapes, 0), "ring");
    EXPECT_EQ(draw(shapes, 0), pixels({{1, 1}, {2, 1}, {3, 1}, {1, 2}, {3, 2}, {1, 3}, {2, 3}, {3, 3}, {7, 7}}));
}

TEST_F(Polygons, ShapefileIsRead) {
    GDALDriver* driver = GetGDALDriverManager()->GetDriverByName("ESRI Shapefile");
    ASSERT_NE(driver, nullptr);
    {
        const std::unique_ptr<GDALDataset, GDALDatasetUniquePtrDeleter> file(
            driver->Create((folder_ / "areas.shp").c_str(), 0, 0, 0, GDT_Unknown, nullptr));
        OGRLayer* layer = file->CreateLayer("areas", nullptr, wkbPolygon);
        OGRFieldDefn field("CLASS", OFTString);
        layer->CreateField(&field);
        OGRFeature feature(layer->GetLayerDefn());
        feature.SetField("CLASS", "roof");
        OGRGeometry* geometry = nullptr;
        OGRGeometryFactory::createFromWkt("POLYGON((3.2 2.1,20.7 6.3,9.4 8.8,13.1 16.2,3.2 2.1))", nullptr, &geometry);
        feature.SetGeometryDirectly(geometry);
        ASSERT_EQ(layer->CreateFeature(&feature), OGRERR_NONE);
    }
    const KSHostShapes* shapes = open(folder_ / "areas.shp");
    ASSERT_EQ(KSHostShapeCount(shapes), 1);
    EXPECT_STREQ(KSHostShapeName(shapes, 0), "roof");
    EXPECT_EQ(draw(shapes, 0), expected(kDart, same));
}

TEST_F(Polygons, SmallPolygonTouchesThePixelWhoseCentreItMisses) {
    const KSHostShapes* shapes = open(geoJson({{4.1, 5.1}, {4.3, 5.1}, {4.3, 5.3}}));
    EXPECT_EQ(count(draw(shapes, 0)), 0);
    EXPECT_EQ(draw(shapes, 0, 1), pixels({{4, 5}}));
}

TEST_F(Polygons, OutsideTheImageThereIsNoWindow) {
    std::array<int, 4> window = {-1, -1, -1, -1};
    EXPECT_EQ(KSHostShapeWindow(open(geoJson({{100, 100}, {110, 100}, {110, 110}})), 0, window.data()), 0);
    EXPECT_EQ(KSHostShapeWindow(open(geoJson({{-1e300, 0}, {-1e299, 0}, {-1e299, 1}})), 0, window.data()), 0);
    const KSHostShapes* around = open(geoJson({{-1e9, -1e9}, {1e9, -1e9}, {1e9, 1e9}, {-1e9, 1e9}}));
    ASSERT_EQ(KSHostShapeWindow(around, 0, window.data()), 1);
    EXPECT_THAT(window, ElementsAre(0, 0, kWidth, kHeight));
    EXPECT_EQ(count(draw(around, 0)), kWidth * kHeight);
}

TEST_F(Polygons, UnusableFilesAreExplained) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {write("a.txt", "x,y\n"), "GeoJSON (.json, .geojson), ESRI Shapefiles (.shp) and tables (.csv)"},
        {write("b.json", "{}"), "b.json"},
        {write("c.csv", "a,b\n1,2\n"), "a column WKT, or columns x and y"},
        {write("d.csv", "x,y\n1,2\n3,four\n"), "vertex 2: \"four\" is not a number"},
        {write("e.csv", "x,y\n"), "it holds no shapes"},
        {write("f.geojson", R"({"type":"FeatureCollection","features":[]})"), "it holds no shapes"},
        {folder_ / "missing.shp", "missing.shp"}};
    for (const auto& [name, words] : cases) {
        const Reports reports;
        EXPECT_EQ(open(name), nullptr) << name;
        ASSERT_EQ(reports.all.size(), 1U) << name;
        EXPECT_EQ(reports.all[0].code, 62);
        EXPECT_EQ(reports.all[0].severity, 1);
        EXPECT_TRUE(reports.mention(words)) << reports.all[0].text;
    }
}

TEST_F(Polygons, SingularGeotransformIsRefused) {
    place({0, 1, 1, 0, 1, 1});
    const Reports reports;
    EXPECT_EQ(open(geoJson(kDart)), nullptr);
    EXPECT_TRUE(reports.mention("no inverse"));
}

TEST_F(Polygons, NullsAndBadIndexesAreSafe) {
    const Reports reports;
    std::array<int, 4> window = {0, 0, 1, 1};
    unsigned char mask = 0;
    EXPECT_EQ(KSHostOpenShapes(nullptr, image_, 0), nullptr);
    EXPECT_EQ(KSHostOpenShapes("a.csv", nullptr, 0), nullptr);
    EXPECT_EQ(reports.all.size(), 2U);
    EXPECT_EQ(KSHostShapeCount(nullptr), 0);
    EXPECT_STREQ(KSHostShapeName(nullptr, 0), "");
    EXPECT_EQ(KSHostShapeWindow(nullptr, 0, window.data()), 0);
    EXPECT_EQ(KSHostRasterizeShape(nullptr, 0, 0, window.data(), &mask), 0);
    KSHostCloseShapes(nullptr);
    const KSHostShapes* shapes = open(geoJson(kDart));
    EXPECT_EQ(KSHostShapeWindow(shapes, 1, window.data()), 0);
    EXPECT_EQ(KSHostShapeWindow(shapes, -1, window.data()), 0);
    EXPECT_EQ(KSHostRasterizeShape(shapes, 1, 0, window.data(), &mask), 0);
    EXPECT_EQ(KSHostRasterizeShape(shapes, 0, 0, nullptr, &mask), 0);
    EXPECT_EQ(KSHostRasterizeShape(shapes, 0, 0, window.data(), nullptr), 0);
}

}  // namespace
}  // namespace hosttest
