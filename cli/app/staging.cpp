#include "app/staging.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "app/report.hpp"

namespace fs = std::filesystem;

namespace kscli {
namespace {

bool isThere(const fs::path& path) {
    std::error_code ec;
    return fs::exists(fs::symlink_status(path, ec));
}

fs::path parentOf(const fs::path& path) {
    const fs::path parent = path.parent_path();
    return parent.empty() ? fs::path(".") : parent;
}

constexpr const char* kFolderStart = ".ks-unfinished-";

int openFolder(const fs::path& folder) { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }

// The kernel takes the lock back when its holder ends, however it ends.
bool lock(int descriptor) { return flock(descriptor, LOCK_EX | LOCK_NB) == 0; }

void removeAbandoned(const fs::path& parent) {
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(parent, ec)) {
        if (entry.path().filename().string().rfind(kFolderStart, 0) != 0) continue;
        const int descriptor = openFolder(entry.path());
        if (descriptor < 0) continue;
        if (lock(descriptor)) fs::remove_all(entry.path(), ec);
        close(descriptor);
    }
}

void move(const fs::path& from, const fs::path& to) {
    std::error_code ec;
    if (fs::is_directory(from) && fs::is_directory(to)) {
        for (const auto& entry : fs::directory_iterator(from)) move(entry.path(), to / entry.path().filename());
        return;
    }
    fs::rename(from, to, ec);
    if (ec) fail("{} cannot be put in place: {}.", to.string(), ec.message());
}

}  // namespace

std::string lowerExtension(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

bool sameFile(const fs::path& a, const fs::path& b) {
    std::error_code ec;
    return fs::equivalent(a, b, ec) && !ec;
}

void requireImageName(const std::string& name) {
    static const std::set<std::string> kOtherFormats = {".png", ".jpg", ".jpeg", ".jp2", ".nc",  ".h5",
                                                        ".hdf", ".he5", ".vrt",  ".svg", ".csv", ".json",
                                                        ".txt", ".xml", ".zip",  ".sli", ".ks"};
    const std::string extension = lowerExtension(name);
    if (extension == ".hdr") fail("{} is the name of a header; name the image itself.", name);
    if (kOtherFormats.count(extension) != 0) {
        fail("{}: images are written as GeoTIFF (.tif) or ENVI (.img, .bip, .dat or no extension), not as {}.", name,
             extension);
    }
}

void requireReadable(const std::string& name, const std::string& thing) {
    if (name.empty()) fail("the {} has no name; give the path of a file.", thing);
    std::error_code ec;
    const fs::path path(name);
    const fs::file_status status = fs::status(path, ec);
    if (!fs::exists(status)) fail("{}: no such file. Check the path.", name);
    if (fs::is_directory(status)) fail("{} is a folder. Give the path of the {} in it.", name, thing);
    if (lowerExtension(path) == ".hdr") fail("{} is a header. Give the path of the {} beside it.", name, thing);
    if (fs::is_regular_file(status) && fs::file_size(path, ec) == 0) fail("{} is empty (0 bytes).", name);
    if (access(name.c_str(), R_OK) != 0) fail("{} cannot be read: {}.", name, std::strerror(errno));
}

std::vector<fs::path> companionsOf(const fs::path& image) {
    std::vector<fs::path> names;
    if (lowerExtension(image) != ".tif" && lowerExtension(image) != ".tiff") {
        names.push_back(fs::path(image).replace_extension(".hdr"));
        names.push_back(fs::path(image.string() + ".hdr"));
    }
    names.push_back(fs::path(image.string() + ".ks"));
    names.push_back(fs::path(image.string() + ".aux.xml"));
    return names;
}

Staging::Staging(const std::string& output, bool force) : output_(output), force_(force) {
    if (output_.filename().empty() || output_.filename() == "." || output_.filename() == "..") {
        fail("'{}' does not name a file to write.", output);
    }
    if (fs::is_directory(output_)) fail("{} is a folder. Give the path of the file to write.", output);
    const fs::path parent = parentOf(output_);
    if (!fs::is_directory(parent)) fail("the folder {} does not exist. Make it, or choose another.", parent.string());
    refuseExisting(output_);
    removeAbandoned(parent);
    makeFolder(parent);
    showFolderAs(folder_.string() + "/", output_.parent_path().empty() ? "" : parent.string() + "/");
}

void Staging::makeFolder(const fs::path& parent) {
    // Before it is locked, another run may take the folder for an abandoned one; then there is none, and the next is
    // tried.
    for (bool taken = true; taken;) {
        std::string pattern = (parent / (std::string(kFolderStart) + "XXXXXX")).string();
        if (mkdtemp(pattern.data()) == nullptr) {
            fail("nothing can be written in {}: {}. Choose another folder.", parent.string(), std::strerror(errno));
        }
        folder_ = pattern;
        descriptor_ = openFolder(folder_);
        // A file system without locks has no abandoned folders removed either.
        taken = descriptor_ < 0 || (!lock(descriptor_) && errno == EWOULDBLOCK) || !isThere(folder_);
        if (taken && descriptor_ >= 0) close(descriptor_);
    }
}

Staging::~Staging() {
    std::error_code ec;
    fs::remove_all(folder_, ec);
    close(descriptor_);
}

void Staging::refuseExisting(const fs::path& name) const {
    if (!force_ && isThere(name)) fail("{} exists. Choose another name, or give --force to replace it.", name.string());
}

void Staging::alsoMakes(const std::vector<fs::path>& names) {
    for (const fs::path& name : names) {
        refuseExisting(name);
        if (isThere(name) && !isThere(output_)) {
            fail("{} exists without {}, so it may belong to another image. Choose another name, or remove it first.",
                 name.string(), output_.string());
        }
        companions_.push_back(name);
    }
}

void Staging::publish() {
    const fs::path parent = parentOf(output_);
    std::vector<fs::path> made;
    for (const auto& entry : fs::directory_iterator(folder_)) {
        const fs::path target = parent / entry.path().filename();
        refuseExisting(target);
        if (entry.path().filename() != output_.filename()) made.push_back(entry.path());
    }
    // What a replaced image left beside it would be taken for the new one's.
    std::error_code ec;
    if (isThere(output_)) {
        for (const fs::path& old : companions_) {
            if (!fs::is_directory(old)) fs::remove(old, ec);
        }
    }
    for (const fs::path& path : made) move(path, parent / path.filename());
    move(path(), output_);
}

}  // namespace kscli
