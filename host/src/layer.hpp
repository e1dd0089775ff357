// A handle of a vector layer. Callers see its file, segment and flags; the table behind it is shared by the handles of
// every file handle on the same file.
#pragma once

#include <array>
#include <memory>
#include <string>

#include "kshost.h"
#include "table.hpp"

namespace kshost {

class LayerHandle : public HostLayer {
public:
    LayerHandle(HostFile& file, int segment, std::shared_ptr<Table> table);
    ~LayerHandle();
    LayerHandle(const LayerHandle&) = delete;
    LayerHandle& operator=(const LayerHandle&) = delete;

    Table& table() const { return *table_; }
    /// The table, if it can be changed; else null.
    EditableTable* editable() const { return editable_; }
    /// A copy of a text for the caller to read or edit, valid for the next 15 texts.
    char* lend(std::string_view text);

private:
    std::shared_ptr<Table> table_;
    EditableTable* editable_;
    std::array<std::string, 16> lent_;
    size_t next_ = 0;
};

}  // namespace kshost
