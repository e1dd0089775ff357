// A folder that lives as long as a test, in memory where the system has such a place: tests store many small files, and
// each store waits for the disk.
#pragma once

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <stdlib.h>
#include <unistd.h>

namespace kit {

class TempFolder {
public:
    TempFolder() {
        std::string pattern = (place() / "kslib-test-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
        folder_ = pattern;
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    std::string path(const std::string& name) const { return (folder_ / name).string(); }
    std::vector<std::string> names() const {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(folder_))
            found.push_back(entry.path().filename().string());
        return found;
    }

private:
    static std::filesystem::path place() {
        constexpr const char* kInMemory = "/dev/shm";
        return access(kInMemory, W_OK) == 0 ? std::filesystem::path(kInMemory) : std::filesystem::temp_directory_path();
    }

    std::filesystem::path folder_;
};

}  // namespace kit
