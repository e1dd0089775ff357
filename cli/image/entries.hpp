// A metadata list of the host, owned.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <kshost_app.h>

namespace kscli {

constexpr int kFileLevel = 1;
constexpr int kChannelLevel = 2;
constexpr int kNoChannel = -1;

/// What segments of a file hold; their lists are found under the same numbers.
enum SegmentType { kLayerSegment = 116, kTableSegment = 180 };

class Entries {
public:
    Entries() = default;
    explicit Entries(HostStringList list) : list_(list) {}
    ~Entries() { DestroyStringList(list_); }
    Entries(Entries&& other) noexcept : list_(other.list_) { other.list_ = nullptr; }
    Entries& operator=(Entries&& other) noexcept {
        std::swap(list_, other.list_);
        return *this;
    }

    static Entries ofFile(HostFile* file) { return Entries(GDBMetaDataIO(file, 0, kFileLevel, kNoChannel, nullptr)); }
    static Entries ofChannel(HostFile* file, int channel) {
        return Entries(GDBMetaDataIO(file, 0, kChannelLevel, channel, nullptr));
    }
    static Entries ofSegment(HostFile* file, int type, int segment) {
        return Entries(GDBMetaDataIO(file, 0, type, segment, nullptr));
    }
    void storeInFile(HostFile* file) { GDBMetaDataIO(file, 1, kFileLevel, kNoChannel, list_); }
    void storeInChannel(HostFile* file, int channel) { GDBMetaDataIO(file, 1, kChannelLevel, channel, list_); }

    void storeInSegment(HostFile* file, int type, int segment) { GDBMetaDataIO(file, 1, type, segment, list_); }

    /// The value of a key, or null.
    const char* find(const std::string& key) const { return FetchAuxEntry(list_, key.c_str()); }
    void set(const std::string& key, const std::string& value) {
        list_ = SetAuxEntry(list_, key.c_str(), value.c_str());
    }
    void remove(const std::string& key) { list_ = DeleteAuxEntries(list_, key.c_str(), 0, 1); }
    std::vector<std::pair<std::string, std::string>> items() const;
    /// The entries as they are, for lists that are not of KEY=VALUE.
    std::vector<std::string> texts() const;

private:
    HostStringList list_ = nullptr;
};

}  // namespace kscli
