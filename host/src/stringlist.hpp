// Metadata lists inside the host: ordered KEY=VALUE entries that keep exactly what was set.
// The C boundary's HostStringList (a null-terminated char **) is made from and turned into this.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kshost.h"

namespace kshost {

/// What a metadata list belongs to.
enum ListLevel { kFileLevel = 1, kChannelLevel = 2, kSegmentLevel = 3 };

class StringList {
public:
    using Entry = std::string;  // "KEY=VALUE", as set

    StringList() = default;
    explicit StringList(std::vector<Entry> entries) : entries_(std::move(entries)) {}
    /// Copies a boundary list; null is the empty list.
    static StringList fromBoundary(HostStringList list);
    /// A new boundary list that the caller destroys with DestroyStringList; null when empty.
    HostStringList toBoundary() const;

    /// The value of the first entry of exactly this key; the view lives as long as the list is not changed.
    const char* find(std::string_view key) const;
    /// Replaces the key's first entry in place (and drops any others), or appends.
    void set(std::string_view key, std::string_view value);
    void remove(std::string_view key);

    const std::vector<Entry>& entries() const { return entries_; }
    bool empty() const { return entries_.empty(); }
    bool operator==(const StringList& other) const { return entries_ == other.entries_; }

private:
    std::vector<Entry> entries_;
};

}  // namespace kshost
