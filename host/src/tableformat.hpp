// Formats that a layer is written to for other programs. Each holds one table, may hold fewer fields than a layer has,
// and appears whole or not at all when its file is closed.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "table.hpp"

namespace kshost {

/// A field of a layer that a format takes, under the name that it has there.
struct KeptField {
    int field;
    std::string name;
};

class TableFormat {
public:
    virtual ~TableFormat() = default;
    /// The file's type at the boundary.
    virtual int type() const = 0;
    /// Why it cannot have its path's name, else an empty text.
    virtual std::string whyNotNamed() const { return {}; }
    /// Every file that writing makes, the one that bears the name last.
    virtual std::vector<std::string> files() const = 0;
    /// The fields that it takes, in order.
    virtual std::vector<KeptField> kept(const std::vector<Field>& fields) const = 0;
    /// Writes a table whose fields it takes all. Empty text on success, else the reason with the files as they were.
    virtual std::string write(Table& table) const = 0;
};

/// The format of a file type for a file of that (absolute) path; null with a reason.
std::unique_ptr<TableFormat> newTableFormat(int type, const std::string& path, std::string& why);

}  // namespace kshost
