// Outputs appear whole or not at all: everything is made in a hidden folder beside the final name and moved at the end.
// An image comes with its header and sidecar; they move together, the image last. The folder is locked while its
// program lives, so that the next run beside it can clear away what a killed one left.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kscli {

class Staging {
public:
    /// Refuses an output that exists (unless forced), a folder that is missing, and one that cannot be written.
    Staging(const std::string& output, bool force);
    ~Staging();
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    /// Where to make the output until it is published.
    std::string path() const { return (folder_ / output_.filename()).string(); }
    const std::filesystem::path& folder() const { return folder_; }
    /// Further names that belong to the output, such as an image's header. One that exists is refused like the output
    /// itself, and replaced only together with it.
    void alsoMakes(const std::vector<std::filesystem::path>& names);
    /// Moves everything into place.
    void publish();

private:
    void refuseExisting(const std::filesystem::path& name) const;
    void makeFolder(const std::filesystem::path& parent);

    std::filesystem::path output_;
    std::filesystem::path folder_;
    std::vector<std::filesystem::path> companions_;
    bool force_;
    int descriptor_ = -1;  // of the folder, locked
};

/// The header and sidecar names that an image of this name may have.
std::vector<std::filesystem::path> companionsOf(const std::filesystem::path& image);

/// Refuses a file that is missing, a folder, a header, empty or not readable; `thing` is what it should be.
void requireReadable(const std::string& name, const std::string& thing);

/// Refuses the name of a new image whose extension promises a format that is not written.
void requireImageName(const std::string& name);

/// Both name the same existing file.
bool sameFile(const std::filesystem::path& a, const std::filesystem::path& b);

/// The extension in lower case, with its dot.
std::string lowerExtension(const std::filesystem::path& path);

}  // namespace kscli
