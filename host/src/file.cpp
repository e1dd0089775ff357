// Handles: opening, creating, sharing and closing files. Live handles are kept in one set, so that a dead one is
// recognised without being looked into.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <utility>

#include "hostfile.hpp"
#include "kshost_app.h"
#include "rasterformats.hpp"
#include "report.hpp"
#include "sidecar.hpp"
#include "speclibrary.hpp"
#include "tableformat.hpp"
#include "vqraster.hpp"

namespace kshost {
namespace {

struct Registry {
    std::mutex lock;
    std::set<HostFile*, std::less<>> files;
};

Registry& registry() {
    static Registry all;
    return all;
}

bool isLive(const HostFile* fp) {
    const std::lock_guard<std::mutex> guard(registry().lock);
    return registry().files.count(fp) != 0;
}

HostFile* enrolled(std::unique_ptr<HostFile> file) {
    const std::lock_guard<std::mutex> guard(registry().lock);
    registry().files.insert(file.get());
    return file.release();
}

// Samples that another handle has written but not yet handed to the system. A file may have several names.
void flushOthers(const std::string& path) {
    const std::lock_guard<std::mutex> guard(registry().lock);
    std::error_code ignored;
    for (const HostFile* other : registry().files)
        if (other->writable && other->raster != nullptr && std::filesystem::equivalent(other->path, path, ignored))
            other->raster->flush();
}

std::unique_ptr<HostFile> newHandle(const char* szFileName, bool writable) {
    auto file = std::make_unique<HostFile>();
    file->name = szFileName;
    file->path = fileOfName(file->name);
    file->sidecar = sidecarPath(file->name);
    file->writable = writable;
    return file;
}

std::nullptr_t refused(const char* caller, const std::string& name, const std::string& why) {
    reportFailure(std::string(caller) + ": " + name + ": " + why);
    return nullptr;
}

/// Rewrites the header of an image that the host created, and tells the store.
bool describe(HostFile& file) {
    Store& store = *file.store;
    const std::string why = file.raster->describe(store.list(1, -1), store.describedChannels(), store.georeference());
    if (!why.empty()) {
        reportFailure(file.name + ": the header cannot be rewritten: " + why);
        return false;
    }
    store.headerRewritten(file.raster->facts().headerText);
    return true;
}

HostFile* openNative(std::unique_ptr<HostFile> file) {
    std::string why;
    file->facts.driver = "SQLite";
    if (file->writable && eaccess(file->path.c_str(), W_OK) != 0) why = std::strerror(errno);
    if (why.empty()) file->store = openNativeStore(file->name, why);
    if (file->store == nullptr) return refused("GDBOpen ()", file->name, why);
    return enrolled(std::move(file));
}

HostFile* openLibrary(std::unique_ptr<HostFile> file, const std::string& header) {
    std::string why;
    SpectralLibrary library;
    file->type = KSHOST_TYPE_SPECTRAL_LIBRARY;
    const bool read = readLibrary(file->path, header, library, why);
    file->facts = library.facts;
    if (read) file->store = openLibraryStore(file->name, library.facts, std::move(library.layer), file->writable, why);
    if (file->store == nullptr) return refused("GDBOpen ()", file->name, why);
    return enrolled(std::move(file));
}

HostFile* open(const char* szFileName, const char* szAccess) {
    constexpr const char* kCaller = "GDBOpen ()";
    if (szFileName == nullptr || szAccess == nullptr) return refused(kCaller, "-", "no file name or no access given");
    const bool writable = std::strcmp(szAccess, "r+") == 0;
    if (!writable && std::strcmp(szAccess, "r") != 0)
        return refused(kCaller, szFileName, std::string("unknown access \"") + szAccess + "\"");
    auto file = newHandle(szFileName, writable);
    flushOthers(file->path);
    std::string why;
    if (looksLikeSidecar(file->path)) return openNative(std::move(file));
    if (const std::string header = findLibraryHeader(file->path); !header.empty())
        return openLibrary(std::move(file), header);
    file->raster = openRaster(file->name, writable, why);
    if (file->raster == nullptr) return refused(kCaller, szFileName, why);
    dressAsCube(*file);
    const RasterFacts& facts = file->raster->facts();
    file->store = openStore(file->name, facts, writable, why);
    if (file->store == nullptr) return refused(kCaller, szFileName, why);
    // The process that stored the last commit ended before it could rewrite the header.
    if (writable && file->store->created() && file->store->headerStale()) describe(*file);
    return enrolled(std::move(file));
}

/// The channel type that the four counts ask for; 0 when they ask for none or for several.
int typeOfCounts(const int* counts) {
    int type = 0;
    for (int i = 0; i < 4; ++i) {
        if (counts[i] < 0 || (counts[i] > 0 && type != 0)) return 0;
        if (counts[i] > 0) type = i + 1;
    }
    return type;
}

// Takes a new image away again.
void discard(std::unique_ptr<HostFile> file) {
    const std::string header = file->raster->facts().headerPath;
    const std::string path = file->path;
    file.reset();
    ::unlink(path.c_str());
    if (!header.empty()) ::unlink(header.c_str());
}

HostFile* create(const char* szFileName, int nXSize, int nYSize, const int* panChannels, const char* szInterleave) {
    constexpr const char* kCaller = "IDBCreate ()";
    if (szFileName == nullptr || panChannels == nullptr || szInterleave == nullptr)
        return refused(kCaller, szFileName != nullptr ? szFileName : "-", "an argument is missing");
    if (std::strcmp(szInterleave, "PIXEL") != 0)
        return refused(kCaller, szFileName, std::string("the interleave \"") + szInterleave + "\" is not \"PIXEL\"");
    const int type = typeOfCounts(panChannels);
    if (type == 0) return refused(kCaller, szFileName, "an image has channels of exactly one type");
    auto file = newHandle(szFileName, true);
    std::string why;
    file->raster = createRaster(file->name, nXSize, nYSize, panChannels[type - 1], type, why);
    if (file->raster == nullptr) return refused(kCaller, szFileName, why);
    file->store = openStore(file->name, file->raster->facts(), true, why);
    if (file->store == nullptr) {
        discard(std::move(file));
        return refused(kCaller, szFileName, why);
    }
    file->store->markCreated();
    return enrolled(std::move(file));
}

/// What keeps a name from being that of a new file for layers, else an empty text.
std::string whyTaken(const std::string& name, const TableFormat* format) {
    if (name.empty()) return "the name is empty";
    if (std::string why = format != nullptr ? format->whyNotNamed() : std::string(); !why.empty()) return why;
    std::vector<std::string> files = format != nullptr ? format->files() : std::vector{fileOfName(name)};
    files.push_back(sidecarPath(name));
    for (const std::string& path : files)
        if (pathExists(path)) return path + " exists";
    return {};
}

HostFile* createForLayers(int type, const char* szFileName, int nXSize, int nYSize) {
    constexpr const char* kCaller = "GDBCreate ()";
    if (szFileName == nullptr) return refused(kCaller, "-", "no file name given");
    auto file = newHandle(szFileName, true);
    file->type = type;
    std::string why;
    if (type == KSHOST_TYPE_MEMORY) {
        file->store = memoryStore(file->name, nullptr);
    } else if (std::unique_ptr<TableFormat> format = newTableFormat(type, file->path, why); !why.empty()) {
        return refused(kCaller, szFileName, why);
    } else {
        why = whyTaken(file->name, format.get());
        if (!why.empty()) return refused(kCaller, szFileName, why);
        file->store = type == KSHOST_TYPE_NATIVE ? createNativeStore(file->name, nXSize, nYSize, why)
                                                 : memoryStore(file->name, std::move(format));
        if (file->store == nullptr) return refused(kCaller, szFileName, why);
    }
    return enrolled(std::move(file));
}

bool flush(HostFile& file) {
    const bool stored = commitFile(file);
    const std::string why = file.raster != nullptr && file.writable ? file.raster->flush() : std::string();
    if (!why.empty()) reportFailure(file.name + ": " + why);
    return stored && why.empty();
}

bool close(HostFile* fp);

/// A channel of a cube is not the caller's to close, except for what fpReference gave out, which counts for its file.
bool closeLent(HostFile& channel) {
    if (channel.references == 1) {
        reportFailure("GDBClose (): " + channel.name + ": this channel is closed together with its file");
        return false;
    }
    --channel.references;
    return close(channel.cube);
}

bool close(HostFile* fp) {
    HostFile* file = live(fp, "GDBClose ()");
    if (file == nullptr) return false;
    if (file->cube != nullptr) return closeLent(*file);
    // Even when storing fails or throws, the reference is given back.
    const bool stored = guarded("GDBClose ()", false, [file] { return flush(*file); });
    if (--file->references > 0) return stored;
    const std::unique_ptr<HostFile> owner(file);
    const std::lock_guard<std::mutex> guard(registry().lock);
    for (const auto& channel : file->lent) registry().files.erase(channel.get());
    registry().files.erase(file);
    return stored;
}

bool isFile(const std::string& name, const HostFile& file) {
    std::error_code ignored;
    return name == file.name || std::filesystem::equivalent(fileOfName(name), file.path, ignored);
}

}  // namespace

HostFile* openFile(const std::string& name, const char* access) { return open(name.c_str(), access); }

bool closeFile(HostFile* fp) { return close(fp); }

HostFile* openCubeNamed(const std::string& name) {
    const std::lock_guard<std::mutex> guard(registry().lock);
    HostFile* found = nullptr;
    for (HostFile* file : registry().files) {
        if (dynamic_cast<const VqRaster*>(file->raster.get()) == nullptr || !isFile(name, *file)) continue;
        if (found == nullptr || (file->writable && !found->writable)) found = file;
    }
    return found;
}

void makeLentHandles(HostFile& file, const std::vector<std::string>& names) {
    std::vector<std::unique_ptr<HostFile>> handles;
    for (const std::string& name : names) {
        handles.push_back(std::make_unique<HostFile>());
        HostFile& channel = *handles.back();
        channel.name = name;
        channel.path = file.path;
        channel.sidecar = file.sidecar;
        channel.store = file.store;
        channel.cube = &file;
    }
    const std::lock_guard<std::mutex> guard(registry().lock);
    for (const auto& channel : handles) registry().files.insert(channel.get());
    file.lent = std::move(handles);
}

HostFile* live(HostFile* fp, const char* caller) {
    if (fp != nullptr && isLive(fp)) return fp;
    reportFailure(std::string(caller) + (fp == nullptr ? ": no file given" : ": the file is not open"));
    return nullptr;
}

bool mayWrite(const HostFile& file, const char* caller) {
    if (file.writable) return true;
    reportFailure(std::string(caller) + ": " + file.name + " is open for reading only.");
    return false;
}

bool commitFile(HostFile& file) {
    if (file.store == nullptr || !file.writable) return true;
    Store& store = *file.store;
    const bool dirty = store.dirty();
    if (dirty) {
        const std::string why = store.commit();
        if (!why.empty()) {
            const char* what = file.raster != nullptr ? ": the metadata cannot be stored: " : ": it cannot be stored: ";
            reportFailure(file.name + what + why);
            return false;
        }
    }
    if (file.raster == nullptr || !store.created() || (!dirty && !store.headerStale())) return true;
    return describe(file);
}

}  // namespace kshost

using kshost::abandonIfTrapped;
using kshost::guarded;

void ImageRegister(void) {
    guarded("ImageRegister ()", 0, [] { return kshost::registerFormats(), 0; });
}

int DKCheck(const char* szFileName) {
    return guarded("DKCheck ()", 0, [=] {
        if (szFileName == nullptr) return 0;
        struct stat status {};
        return ::stat(kshost::fileOfName(szFileName).c_str(), &status) == 0 ? 1 : 0;
    });
}

HostFile* GDBOpen(const char* szFileName, const char* szAccess) {
    HostFile* fp = guarded<HostFile*>("GDBOpen ()", nullptr, [=] { return kshost::open(szFileName, szAccess); });
    if (fp == nullptr) abandonIfTrapped();
    return fp;
}

void GDBClose(HostFile* fp) {
    if (fp == nullptr) return;
    if (!guarded("GDBClose ()", false, [=] { return kshost::close(fp); })) abandonIfTrapped();
}

HostFile* IDBCreate(const char* szFileName, int nXSize, int nYSize, const int anChannels[4], const char* szInterleave) {
    HostFile* fp = guarded<HostFile*>(
        "IDBCreate ()", nullptr, [=] { return kshost::create(szFileName, nXSize, nYSize, anChannels, szInterleave); });
    if (fp == nullptr) abandonIfTrapped();
    return fp;
}

HostFile* GDBCreate(int nFileType, const char* szFileName, int nXSize, int nYSize, int /*n0*/, int /*n1*/,
                    const char* /*szText*/) {
    HostFile* fp = guarded<HostFile*>("GDBCreate ()", nullptr,
                                      [=] { return kshost::createForLayers(nFileType, szFileName, nXSize, nYSize); });
    if (fp == nullptr) abandonIfTrapped();
    return fp;
}

const char* fp2filename(HostFile* fp) {
    const char* name = guarded<const char*>("fp2filename ()", nullptr, [=]() -> const char* {
        const HostFile* file = kshost::live(fp, "fp2filename ()");
        return file != nullptr ? file->name.c_str() : nullptr;
    });
    if (name == nullptr) abandonIfTrapped();
    return name;
}

int fp2type(HostFile* fp) { return fpValidate(fp) != 0 ? fp->type : 0; }

int fpValidate(HostFile* fp) {
    return guarded("fpValidate ()", 0, [=] { return fp != nullptr && kshost::isLive(fp) ? 1 : 0; });
}

HostFile* fpReference(HostFile* fp) {
    if (fpValidate(fp) == 0) return nullptr;
    ++fp->references;
    if (fp->cube != nullptr) ++fp->cube->references;
    return fp;
}

int KSHostFlush(HostFile* fp) {
    const int stored = guarded("KSHostFlush ()", 0, [=] {
        HostFile* file = kshost::live(fp, "KSHostFlush ()");
        return file != nullptr && kshost::flush(*file) ? 1 : 0;
    });
    if (stored == 0) abandonIfTrapped();
    return stored;
}
