// What the host's own tests share: a folder that goes away, and the reports of a stretch of code.
#pragma once

#include <gtest/gtest.h>
#include <kshost_app.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace hosttest {

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "kshost-XXXXXX").string();
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

inline std::string contentsOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

inline void write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

}  // namespace hosttest
