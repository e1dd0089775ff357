// What the host's own tests share: a folder that goes away, and the reports of a stretch of code.
#pragma once

#include <gtest/gtest.h>
#include <kshost.h>
#include <kshost_app.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

namespace hosttest {

class TemporaryFolder {
public:
    explicit TemporaryFolder(const std::filesystem::path& place = std::filesystem::temp_directory_path()) {
        std::string name = (place / "kshost-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) std::abort();
        path_ = name;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string operator/(const std::string& name) const { return (path_ / name).string(); }
    const std::filesystem::path& path() const { return path_; }
    std::vector<std::string> names() const {
        std::vector<std::string> all;
        for (const auto& entry : std::filesystem::directory_iterator(path_))
            all.push_back(entry.path().filename().string());
        return all;
    }

private:
    std::filesystem::path path_;
};

struct Report {
    int code;
    int severity;
    std::string text;
};

/// Collects what is reported while it lives.
class Reports {
public:
    Reports() {
        KSHostSetErrorHandler(
            [](void* user, int code, int severity, const char* text) {
                static_cast<Reports*>(user)->all.push_back({code, severity, text});
            },
            this);
    }
    ~Reports() { KSHostSetErrorHandler(nullptr, nullptr); }
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    bool mention(const std::string& part) const {
        for (const Report& report : all) {
            if (report.text.find(part) != std::string::npos) return true;
        }
        return false;
    }
    std::vector<Report> all;
};

/// Runs a body in a child process; returns what waitpid says.
inline int inChild(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) _exit(body());
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

inline bool succeeded(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == 0; }

/// Runs a body as a user who owns nothing here.
inline int asNobody(const std::function<int()>& body) {
    return inChild([&] {
        if (geteuid() == 0 && (setegid(65534) != 0 || seteuid(65534) != 0)) return 99;
        return body();
    });
}

/// A limit on file sizes stands for a full disk: the kernel refuses to let a file grow.
class FullDisk {
public:
    explicit FullDisk(rlim_t bytes) {
        before_ = std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit limited = old_;
        limited.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FullDisk() {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, before_);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;

private:
    rlimit old_ = {};
    void (*before_)(int) = nullptr;
};

/// Bytes that this process has read from files so far; negative where the system does not count them.
inline long long bytesRead() {
    std::ifstream file("/proc/self/io");
    std::string key;
    long long count = -1;
    file >> key >> count;
    return key == "rchar:" && file ? count : -1;
}

inline std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

inline int countShapes(HostLayer* layer) {
    int count = 0;
    for (int shape = GDBGetFirst(layer); shape != -1; shape = GDBGetNext(layer, shape)) ++count;
    return count;
}

}  // namespace hosttest
