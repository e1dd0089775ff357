// Owns one of the host's metadata lists: setting and deleting go on with the list that the host gives back.
#pragma once

#include "kshost.h"

namespace ks {

class MetadataList {
public:
    static constexpr int kFileLevel = 1;
    static constexpr int kChannelLevel = 2;
    static constexpr int kWholeFile = -1;

    MetadataList(HostFile* file, int level, int number)
        : file_(file), level_(level), number_(number), list_(GDBMetaDataIO(file, kRead, level, number, nullptr)) {}
    MetadataList(const MetadataList&) = delete;
    MetadataList& operator=(const MetadataList&) = delete;
    ~MetadataList() {
        if (list_ != nullptr) DestroyStringList(list_);
    }

    /// The value of a key, owned by the list, or null.
    const char* find(const char* key) const { return FetchAuxEntry(list_, key); }
    void remove(const char* key) { list_ = DeleteAuxEntries(list_, key, 0, 1); }
    void replace(const char* key, const char* value) {
        remove(key);
        list_ = SetAuxEntry(list_, key, value);
    }
    /// Stores the list in the file in place of what was there.
    void write() { GDBMetaDataIO(file_, kWrite, level_, number_, list_); }

private:
    static constexpr int kRead = 0;
    static constexpr int kWrite = 1;

    HostFile* file_;
    int level_;
    int number_;
    HostStringList list_;
};

}  // namespace ks
