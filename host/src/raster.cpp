// Which maker a name belongs to. A file's first bytes decide before anything is opened, so that a header that happens
// to lie beside a GeoTIFF does not make it a raw cube, and so that every refusal has a reason of its own.
#include "raster.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>

#include "classicnetcdf.hpp"
#include "rasterformats.hpp"

extern "C" {
// GDAL exports the registration of its vector drivers without a public declaration.
void RegisterOGRCSV();
void RegisterOGRGeoJSON();
void RegisterOGRShape();
}

namespace kshost {
namespace {

struct ImageName {
    std::string path;
    std::string variable;   // of a multi-dimensional file; empty: the largest
    bool netcdf = false;    // the name says netCDF
    bool multidim = false;  // the name says netCDF or HDF5
};

bool startsWithWord(const std::string& text, const char* word) {
    const std::size_t length = std::strlen(word);
    if (text.size() < length) return false;
    for (std::size_t i = 0; i < length; ++i)
        if (std::toupper(static_cast<unsigned char>(text[i])) != word[i]) return false;
    return true;
}

std::string absolutePath(const std::string& path) {
    std::error_code failed;
    const std::string whole = path.empty() ? path : std::filesystem::absolute(path, failed).string();
    return failed ? path : whole;
}

// PATH, NETCDF:"PATH":variable, HDF5:"PATH"://variable; the quotes may be missing.
ImageName parseName(const std::string& name) {
    ImageName parsed;
    parsed.netcdf = startsWithWord(name, "NETCDF:");
    parsed.multidim = parsed.netcdf || startsWithWord(name, "HDF5:");
    if (!parsed.multidim || pathExists(name)) {
        parsed.multidim = parsed.netcdf = false;
        parsed.path = absolutePath(name);
        return parsed;
    }
    const std::string rest = name.substr(name.find(':') + 1);
    const bool quoted = !rest.empty() && rest.front() == '"';
    const std::size_t end = quoted ? rest.find('"', 1) : rest.rfind(':');
    parsed.path = absolutePath(quoted ? rest.substr(1, end == std::string::npos ? end : end - 1) : rest.substr(0, end));
    const std::size_t colon = quoted && end != std::string::npos ? end + 1 : end;
    if (colon < rest.size() && rest[colon] == ':') parsed.variable = rest.substr(colon + 1);
    return parsed;
}

// The HDF5 library that GDAL brings along prints a stack of errors of its own for every file that it cannot read.
void silenceHdf5() {
    using SetAutomatic = int (*)(std::int64_t stack, void* print, void* data);
    void* found = ::dlsym(RTLD_DEFAULT, "H5Eset_auto2");
    SetAutomatic setAutomatic = nullptr;
    std::memcpy(&setAutomatic, &found, sizeof found);
    if (setAutomatic != nullptr) setAutomatic(0, nullptr, nullptr);
}

enum class Signature { None, Tiff, Png, Vrt, Hdf5, NetcdfClassic };

Signature signatureOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::array<char, 8> start{};
    const auto startsWith = [&start](const char* bytes, std::size_t count) {
        return std::memcmp(start.data(), bytes, count) == 0;
    };
    file.read(start.data(), start.size());
    if (startsWith("II*\0", 4) || startsWith("MM\0*", 4) || startsWith("II+\0", 4) || startsWith("MM\0+", 4))
        return Signature::Tiff;
    if (startsWith("\x89PNG\r\n\x1a\n", 8)) return Signature::Png;
    if (startsWith("CDF\x01", 4) || startsWith("CDF\x02", 4) || startsWith("CDF\x05", 4))
        return Signature::NetcdfClassic;
    // HDF5 may come after a block of the user's own, whose size is a power of two.
    for (const std::streamoff at : {0, 512, 1024, 2048}) {
        file.clear();
        file.seekg(at);
        start.fill(0);
        file.read(start.data(), start.size());
        if (startsWith("\x89HDF\r\n\x1a\n", 8)) return Signature::Hdf5;
    }
    std::string text(1024, '\0');
    file.clear();
    file.seekg(0);
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    return text.find("<VRTDataset") != std::string::npos ? Signature::Vrt : Signature::None;
}

bool hasExtension(const std::string& path, std::initializer_list<const char*> extensions) {
    const std::size_t dot = path.find_last_of("./");
    if (dot == std::string::npos || path[dot] != '.') return false;
    std::string extension = path.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return std::any_of(extensions.begin(), extensions.end(), [&](const char* e) { return extension == e; });
}

// What keeps a path from being read at all, else an empty text.
std::string whyUnreadable(const std::string& path) {
    struct stat status {};
    if (path.empty()) return "the name is empty";
    if (::stat(path.c_str(), &status) != 0) return std::strerror(errno);
    if (S_ISDIR(status.st_mode)) return "this is a folder";
    if (!S_ISREG(status.st_mode)) return "this is not a regular file";
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) return std::strerror(errno);
    ::close(descriptor);
    if (status.st_size == 0) return "the file is empty";
    return {};
}

std::unique_ptr<Raster> openByContent(const ImageName& image, bool writable, std::string& why) {
    const Signature signature = signatureOf(image.path);
    if (signature == Signature::NetcdfClassic && isCutShort(image.path)) {
        why = "the file ends before the data that its header announces; get the whole file";
        return nullptr;
    }
    if (image.multidim) return openMultidim(image.path, image.variable, image.netcdf, why);
    switch (signature) {
        case Signature::Hdf5:
            return openMultidim(image.path, {}, hasExtension(image.path, {"nc", "nc4", "cdf"}), why);
        case Signature::NetcdfClassic:
            return openMultidim(image.path, {}, true, why);
        case Signature::Tiff:
            return openGdal(image.path, "GTiff", writable, nullptr, why);
        case Signature::Png:
            return openGdal(image.path, "PNG", writable, nullptr, why);
        case Signature::Vrt:
            return openGdal(image.path, "VRT", writable, nullptr, why);
        case Signature::None:
            break;
    }
    const std::string header = findEnviHeader(image.path);
    if (!header.empty()) return openEnvi(image.path, header, writable, why);
    if (hasExtension(image.path, {"hdr"})) {
        why = "this is a header: open the image that it belongs to";
        return nullptr;
    }
    why = "no image format known here (ENVI with a .hdr beside it, GeoTIFF, netCDF, HDF5, PNG, VRT)";
    for (const std::string& candidate : enviHeaderNames(image.path))
        if (pathExists(candidate)) why = candidate + " is no ENVI header: its first line must be ENVI";
    return nullptr;
}

}  // namespace

std::string Raster::describe(const StringList&, const std::vector<StringList>&, const Georeference&) { return {}; }

void registerFormats() {
    static std::once_flag once;
    std::call_once(once, [] {
        // GDAL takes a part of the machine's memory unless told otherwise; an open image asks for more where it needs
        // it.
        int limited = 0;
        GDALSetCacheMax64(std::min<GIntBig>(GDALGetCacheMax64(), IMPGetMemory(&limited) / 4));
        GDALRegister_GTiff();
        GDALRegister_ENVI();
        GDALRegister_MEM();
        GDALRegister_VRT();
        GDALRegister_netCDF();
        GDALRegister_HDF5();
        GDALRegister_HDF5Image();
        GDALRegister_PNG();
        RegisterOGRCSV();
        RegisterOGRGeoJSON();
        RegisterOGRShape();
        silenceHdf5();
    });
}

std::unique_ptr<Raster> openRaster(const std::string& name, bool writable, std::string& why) {
    registerFormats();
    why.clear();
    const ImageName image = parseName(name);
    why = whyUnreadable(image.path);
    if (!why.empty()) return nullptr;
    const GdalMessages messages;
    auto raster = openByContent(image, writable, why);
    if (raster == nullptr && why.empty()) why = messages.text("the image cannot be opened");
    return raster;
}

std::unique_ptr<Raster> createRaster(const std::string& name, int width, int height, int channels, int type,
                                     std::string& why) {
    registerFormats();
    why.clear();
    if (width < 1 || height < 1 || channels < 1) {
        why = "an image has at least one pixel, one line and one channel";
        return nullptr;
    }
    const ImageName image = parseName(name);
    if (image.multidim) {
        why = "netCDF and HDF5 images cannot be made here";
        return nullptr;
    }
    const std::string& path = image.path;
    for (const std::string& taken : {path, sidecarPath(name), path + ".aux.xml"})
        if (pathExists(taken)) {
            why = taken + " exists";
            return nullptr;
        }
    const GdalMessages messages;
    return hasExtension(path, {"tif", "tiff"}) ? createGeoTiff(path, width, height, channels, type, why)
                                               : createEnvi(path, width, height, channels, type, why);
}

bool hasImageSignature(const std::string& path) { return signatureOf(path) != Signature::None; }

std::string fileOfName(const std::string& name) { return parseName(name).path; }

std::string sidecarPath(const std::string& name) {
    const ImageName image = parseName(name);
    if (image.variable.empty()) return image.path + ".ks";
    // Each variable of a file is an image of its own, with a sidecar of its own.
    std::string variable =
        image.variable.substr(std::min(image.variable.find_first_not_of('/'), image.variable.size()));
    std::replace(variable.begin(), variable.end(), '/', '.');
    return image.path + "." + variable + ".ks";
}

bool pathExists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

std::string withExtension(const std::string& path, const std::string& extension) {
    const std::size_t dot = path.find_last_of("./");
    const bool has = dot != std::string::npos && path[dot] == '.' && dot > 0 && path[dot - 1] != '/';
    return (has ? path.substr(0, dot) : path) + extension;
}

bool readWholeFile(const std::string& path, std::string& bytes, std::string& why) {
    constexpr std::streamoff kLongest = std::streamoff{256} << 20;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff length = file ? static_cast<std::streamoff>(file.tellg()) : -1;
    if (length < 0) return why = path + ": " + std::strerror(errno), false;
    if (length > kLongest) return why = path + ": too long for a header", false;
    bytes.resize(static_cast<std::size_t>(length));
    file.seekg(0);
    file.read(bytes.data(), length);
    if (file.gcount() != length) return why = path + ": cannot be read", false;
    return true;
}

}  // namespace kshost
