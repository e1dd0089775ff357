// What the radiance tables need of the way that tables are stored.
#pragma once

#include <kslib/kslut.h>

namespace ks {

/// What became of a table whose attributes were read.
enum class Attributes {
    read,
    failed,
    released  // memory ran out for the dimensions: the record is gone
};
Attributes readAttributes(KSLUT* table);

}  // namespace ks
