// How a table is told in netCDF, beyond names and units: attributes with which an export comes back the same.
#pragma once

namespace kscli::exchange {

// Of the variables that hold a table's values.
constexpr const char* kElement = "kslib_element";          // its element type
constexpr const char* kValue = "kslib_value";              // 1 for the first value of an element, 2 for the second
constexpr const char* kValueName = "kslib_value_name";     // where the table names its values
constexpr const char* kTableName = "kslib_table";          // the table's own name
constexpr const char* kDescription = "kslib_description";  // and description
// Of coordinate variables.
constexpr const char* kAxis = "kslib_axis";        // the axis, from 1
constexpr const char* kLabel = "kslib_label";      // its label as it is
constexpr const char* kAssumed = "kslib_assumed";  // the coordinate was not known when the table was made

}  // namespace kscli::exchange
