// Files that take their place whole or not at all: they are written beside it, brought to the disk, and renamed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "rasterformats.hpp"

namespace kshost {
namespace {

/// A file under another name until it takes its place; goes away if it never does.
class PendingFile {
public:
    explicit PendingFile(std::string path)
        : path_(std::move(path)), temporary_(path_ + ".new" + std::to_string(::getpid())) {}
    PendingFile(PendingFile&& other) noexcept
        : path_(std::move(other.path_)), temporary_(std::move(other.temporary_)), written_(other.written_) {
        other.written_ = false;
    }
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;
    PendingFile& operator=(PendingFile&&) = delete;
    ~PendingFile() {
        if (written_) ::unlink(temporary_.c_str());
    }

    std::string write(const std::string& bytes) {
        struct stat status {};
        const mode_t mode = ::stat(path_.c_str(), &status) == 0 ? status.st_mode & 0777 : 0666;
        const int descriptor = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
        if (descriptor < 0) return failure("be written");
        written_ = true;
        std::string why = writeAll(descriptor, bytes) ? std::string() : failure("be written");
        if (why.empty() && ::fsync(descriptor) != 0) why = failure("be brought to the disk");
        if (::close(descriptor) != 0 && why.empty()) why = failure("be brought to the disk");
        return why;
    }

    std::string takePlace(bool fresh) {
        int moved = fresh ? ::renameat2(AT_FDCWD, temporary_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE)
                          : ::rename(temporary_.c_str(), path_.c_str());
        // Not every file system can tell; whoever made a file of that name since we looked would be fast.
        if (moved != 0 && fresh && (errno == EINVAL || errno == ENOSYS) && !pathExists(path_))
            moved = ::rename(temporary_.c_str(), path_.c_str());
        if (moved != 0) return failure(fresh ? "be made" : "be replaced");
        written_ = false;
        syncFolder();
        return {};
    }

    const std::string& path() const { return path_; }

private:
    std::string failure(const char* what) const { return path_ + ": cannot " + what + ": " + std::strerror(errno); }

    static bool writeAll(int descriptor, const std::string& bytes) {
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t put = ::write(descriptor, bytes.data() + done, bytes.size() - done);
            if (put < 0 && errno == EINTR) continue;
            if (put < 0) return false;
            done += static_cast<std::size_t>(put);
        }
        return true;
    }

    /// The renaming itself is on the disk once the folder is.
    void syncFolder() const {
        const std::size_t slash = path_.find_last_of('/');
        const std::string folder = slash == std::string::npos ? "." : path_.substr(0, slash + 1);
        const int directory = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (directory < 0) return;
        ::fsync(directory);
        ::close(directory);
    }

    std::string path_;
    std::string temporary_;
    bool written_ = false;
};

}  // namespace

std::string placeFiles(const std::vector<NewFile>& files, bool fresh) {
    std::vector<PendingFile> pending;
    for (const NewFile& file : files) {
        pending.emplace_back(file.path);
        std::string why = pending.back().write(file.bytes);
        if (!why.empty()) return why;
    }
    for (std::size_t i = 0; i < pending.size(); ++i) {
        std::string why = pending[i].takePlace(fresh);
        if (why.empty()) continue;
        for (std::size_t placed = 0; fresh && placed < i; ++placed) ::unlink(pending[placed].path().c_str());
        return why;
    }
    return {};
}

std::string replaceFile(const std::string& path, const std::string& bytes) {
    return placeFiles({{path, bytes}}, false);
}

}  // namespace kshost
