#include "lut/netcdf.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>

#include <kshost_app.h>
#include <netcdf.h>

#include "app/report.hpp"
#include "app/staging.hpp"

namespace kscli {
namespace {

void require(int status, const std::string& file, const std::string& what) {
    if (status != NC_NOERR) fail("{}: {}: {}.", file, what, nc_strerror(status));
}

bool contains(const std::vector<double>& values, double value) {
    return std::find(values.begin(), values.end(), value) != values.end();
}

}  // namespace

bool isNumeric(const NetcdfVariable& variable) {
    return variable.type >= NC_BYTE && variable.type <= NC_UINT64 && variable.type != NC_CHAR;
}

bool fitsFloat(const NetcdfVariable& variable) {
    switch (variable.type) {
        case NC_BYTE:
        case NC_UBYTE:
        case NC_SHORT:
        case NC_USHORT:
        case NC_FLOAT:
            return true;
        default:
            return false;
    }
}

std::string netcdfName(const std::string& text) {
    std::string name;
    for (char c : text) name += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    if (name.empty() || std::isdigit(static_cast<unsigned char>(name[0])) != 0) name.insert(0, "_");
    return name;
}

// ---- reading ----

NetcdfReader::NetcdfReader(const std::string& name) : name_(name) {
    requireReadable(name, "netCDF file");
    if (KSHostIsCutShort(name.c_str()) != 0) {
        fail("{} ends before the data that its header announces. Get the whole file.", name);
    }
    const int status = nc_open(name.c_str(), NC_NOWRITE, &file_);
    if (status != NC_NOERR) fail("{} cannot be opened as a netCDF file: {}.", name, nc_strerror(status));
    try {
        listDimensions();
        listVariables();
    } catch (...) {
        nc_close(file_);
        throw;
    }
}

NetcdfReader::~NetcdfReader() { nc_close(file_); }

void NetcdfReader::listDimensions() {
    int count = 0;
    require(nc_inq_dimids(file_, &count, nullptr, 0), name_, "dimensions");
    std::vector<int> ids(static_cast<std::size_t>(count));
    require(nc_inq_dimids(file_, &count, ids.data(), 0), name_, "dimensions");
    for (int id : ids) {
        char text[NC_MAX_NAME + 1] = "";
        NetcdfDimension dimension;
        require(nc_inq_dim(file_, id, text, &dimension.length), name_, "a dimension");
        dimension.name = text;
        // Numbers of dimensions are handed out in order; a gap would belong to a group.
        if (id >= static_cast<int>(dimensions_.size())) dimensions_.resize(static_cast<std::size_t>(id) + 1);
        dimensions_[static_cast<std::size_t>(id)] = dimension;
    }
}

void NetcdfReader::listVariables() {
    int count = 0;
    require(nc_inq_nvars(file_, &count), name_, "variables");
    for (int id = 0; id < count; ++id) {
        char text[NC_MAX_NAME + 1] = "";
        int rank = 0;
        NetcdfVariable variable;
        require(nc_inq_var(file_, id, text, &variable.type, &rank, nullptr, nullptr), name_, "a variable");
        variable.id = id;
        variable.name = text;
        variable.dimensions.resize(static_cast<std::size_t>(rank));
        require(nc_inq_vardimid(file_, id, variable.dimensions.data()), name_, variable.name);
        variables_.push_back(variable);
    }
}

const NetcdfVariable* NetcdfReader::find(const std::string& name) const {
    const auto found = std::find_if(variables_.begin(), variables_.end(),
                                    [&](const NetcdfVariable& variable) { return variable.name == name; });
    return found != variables_.end() ? &*found : nullptr;
}

std::vector<std::size_t> NetcdfReader::shapeOf(const NetcdfVariable& variable) const {
    std::vector<std::size_t> shape;
    for (int dimension : variable.dimensions)
        shape.push_back(dimensions_.at(static_cast<std::size_t>(dimension)).length);
    return shape;
}

const NetcdfVariable* NetcdfReader::coordinatesOf(int dimension) const {
    const NetcdfVariable* variable = find(dimensions_.at(static_cast<std::size_t>(dimension)).name);
    const bool fits =
        variable != nullptr && isNumeric(*variable) && variable->dimensions == std::vector<int>{dimension};
    return fits ? variable : nullptr;
}

std::string NetcdfReader::text(const NetcdfVariable* variable, const std::string& attribute) const {
    const int id = variable != nullptr ? variable->id : NC_GLOBAL;
    nc_type type = NC_NAT;
    std::size_t length = 0;
    if (nc_inq_att(file_, id, attribute.c_str(), &type, &length) != NC_NOERR) return "";
    if (type == NC_STRING && length == 1) {
        char* value = nullptr;
        require(nc_get_att_string(file_, id, attribute.c_str(), &value), name_, attribute);
        std::string text = value != nullptr ? value : "";
        nc_free_string(1, &value);
        return text;
    }
    if (type != NC_CHAR) return "";
    std::string text(length, '\0');
    require(nc_get_att_text(file_, id, attribute.c_str(), text.data()), name_, attribute);
    text.resize(std::min(text.find('\0'), text.size()));
    return text;
}

bool NetcdfReader::hasAttribute(const NetcdfVariable& variable, const std::string& attribute) const {
    return nc_inq_att(file_, variable.id, attribute.c_str(), nullptr, nullptr) == NC_NOERR;
}

std::vector<double> NetcdfReader::numbers(const NetcdfVariable& variable, const char* attribute) const {
    nc_type type = NC_NAT;
    std::size_t length = 0;
    if (nc_inq_att(file_, variable.id, attribute, &type, &length) != NC_NOERR) return {};
    if (type == NC_CHAR || type > NC_UINT64) return {};
    std::vector<double> values(length);
    require(nc_get_att_double(file_, variable.id, attribute, values.data()), name_, attribute);
    return values;
}

std::vector<double> NetcdfReader::fillValues(const NetcdfVariable& variable) const {
    std::vector<double> fill = numbers(variable, "_FillValue");
    // What was never written holds the format's own fill value, in types where that is no ordinary number.
    if (fill.empty() && variable.type == NC_FLOAT) fill.push_back(static_cast<double>(NC_FILL_FLOAT));
    if (fill.empty() && variable.type == NC_DOUBLE) fill.push_back(NC_FILL_DOUBLE);
    for (double value : numbers(variable, "missing_value")) fill.push_back(value);
    return fill;
}

std::vector<double> NetcdfReader::read(const NetcdfVariable& variable, const std::vector<std::size_t>& start,
                                       const std::vector<std::size_t>& count) const {
    std::size_t size = 1;
    for (std::size_t length : count) size *= length;
    std::vector<double> values(size);
    if (size > 0)
        require(nc_get_vara_double(file_, variable.id, start.data(), count.data(), values.data()), name_,
                variable.name);
    const std::vector<double> fill = fillValues(variable);
    const std::vector<double> scale = numbers(variable, "scale_factor");
    const std::vector<double> offset = numbers(variable, "add_offset");
    const double gain = scale.empty() ? 1 : scale[0];
    const double base = offset.empty() ? 0 : offset[0];
    for (double& value : values) {
        value = contains(fill, value) ? std::numeric_limits<double>::quiet_NaN() : value * gain + base;
    }
    return values;
}

std::vector<double> NetcdfReader::readWhole(const NetcdfVariable& variable) const {
    const std::vector<std::size_t> shape = shapeOf(variable);
    return read(variable, std::vector<std::size_t>(shape.size(), 0), shape);
}

// ---- writing ----

// The classic formats: every program reads them, and a disk that fills up is an error like any other, while the HDF5
// library beneath netCDF-4 still has what it could not write when the program ends, and crashes over it.
NetcdfWriter::NetcdfWriter(const std::string& name, double largestVariableBytes) : name_(name) {
    constexpr double kMostBytes = 4294967292;  // of a variable where offsets alone have 64 bits
    const int format = largestVariableBytes > kMostBytes ? NC_64BIT_DATA : NC_64BIT_OFFSET;
    require(nc_create(name.c_str(), format | NC_CLOBBER, &file_), "it cannot be made");
    int before = 0;
    require(nc_set_fill(file_, NC_NOFILL, &before), "it cannot be made");  // everything is written anyway
}

NetcdfWriter::~NetcdfWriter() {
    if (file_ >= 0) nc_abort(file_);
}

void NetcdfWriter::require(int status, const char* what) const { kscli::require(status, name_, what); }

int NetcdfWriter::addDimension(const std::string& name, std::size_t length) {
    int id = 0;
    require(nc_def_dim(file_, name.c_str(), length, &id), "a dimension");
    return id;
}

int NetcdfWriter::addVariable(const std::string& name, Number type, const std::vector<int>& dimensions) {
    int id = 0;
    require(nc_def_var(file_, name.c_str(), type == Number::float32 ? NC_FLOAT : NC_DOUBLE,
                       static_cast<int>(dimensions.size()), dimensions.data(), &id),
            "a variable");
    if (type == Number::float32) {
        const float fill = std::numeric_limits<float>::quiet_NaN();
        require(nc_put_att_float(file_, id, "_FillValue", NC_FLOAT, 1, &fill), "a fill value");
    } else {
        const double fill = std::numeric_limits<double>::quiet_NaN();
        require(nc_put_att_double(file_, id, "_FillValue", NC_DOUBLE, 1, &fill), "a fill value");
    }
    return id;
}

void NetcdfWriter::addText(int variable, const std::string& attribute, const std::string& text) {
    if (text.empty()) return;
    const int id = variable == kFile ? NC_GLOBAL : variable;
    require(nc_put_att_text(file_, id, attribute.c_str(), text.size(), text.c_str()), "an attribute");
}

void NetcdfWriter::addNumber(int variable, const std::string& attribute, int number) {
    const int id = variable == kFile ? NC_GLOBAL : variable;
    require(nc_put_att_int(file_, id, attribute.c_str(), NC_INT, 1, &number), "an attribute");
}

void NetcdfWriter::endDefinitions() { require(nc_enddef(file_), "its definitions"); }

void NetcdfWriter::write(int variable, const std::vector<std::size_t>& start, const std::vector<std::size_t>& count,
                         const std::vector<double>& values) {
    constexpr const char* kWhat = "values cannot be written";
    nc_type type = NC_NAT;
    require(nc_inq_vartype(file_, variable, &type), kWhat);
    if (type == NC_DOUBLE)
        return require(nc_put_vara_double(file_, variable, start.data(), count.data(), values.data()), kWhat);
    // Narrowed here: the netCDF library would refuse infinities as out of range.
    std::vector<float> narrow;
    narrow.reserve(values.size());
    for (double value : values) narrow.push_back(static_cast<float>(value));
    require(nc_put_vara_float(file_, variable, start.data(), count.data(), narrow.data()), kWhat);
}

void NetcdfWriter::close() {
    const int file = file_;
    file_ = -1;
    require(nc_close(file), "it cannot be completed; is the disk full?");
}

}  // namespace kscli
