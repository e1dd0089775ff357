// netCDF files through their C library: variables with dimensions, attributes and numbers, read and written in pieces.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kscli {

struct NetcdfDimension {
    std::string name;
    std::size_t length = 0;
};

struct NetcdfVariable {
    int id = 0;
    std::string name;
    int type = 0;                 // an nc_type
    std::vector<int> dimensions;  // numbers of dimensions of the file
};

/// A file that is read. Only what lies in its root group is seen. Throws Failures that name the file.
class NetcdfReader {
public:
    explicit NetcdfReader(const std::string& name);
    ~NetcdfReader();
    NetcdfReader(const NetcdfReader&) = delete;
    NetcdfReader& operator=(const NetcdfReader&) = delete;

    const std::string& name() const { return name_; }
    const std::vector<NetcdfDimension>& dimensions() const { return dimensions_; }
    const std::vector<NetcdfVariable>& variables() const { return variables_; }
    const NetcdfVariable* find(const std::string& name) const;
    std::vector<std::size_t> shapeOf(const NetcdfVariable& variable) const;
    /// The variable of one dimension that has the dimension's name, or null.
    const NetcdfVariable* coordinatesOf(int dimension) const;

    /// An attribute as text, empty when there is none; of the file for a null variable.
    std::string text(const NetcdfVariable* variable, const std::string& attribute) const;
    bool hasAttribute(const NetcdfVariable& variable, const std::string& attribute) const;

    /// Numbers of a hyper-rectangle, unpacked by scale_factor and add_offset; fill values are not-a-numbers.
    std::vector<double> read(const NetcdfVariable& variable, const std::vector<std::size_t>& start,
                             const std::vector<std::size_t>& count) const;
    std::vector<double> readWhole(const NetcdfVariable& variable) const;

private:
    void listDimensions();
    void listVariables();
    std::vector<double> numbers(const NetcdfVariable& variable, const char* attribute) const;
    std::vector<double> fillValues(const NetcdfVariable& variable) const;

    std::string name_;
    int file_ = -1;
    std::vector<NetcdfDimension> dimensions_;
    std::vector<NetcdfVariable> variables_;
};

bool isNumeric(const NetcdfVariable& variable);
/// Whether 32-bit floats hold all numbers of the type.
bool fitsFloat(const NetcdfVariable& variable);

/// A netCDF file that is written: first all definitions, then numbers.
class NetcdfWriter {
public:
    NetcdfWriter(const std::string& name, double largestVariableBytes);
    ~NetcdfWriter();
    NetcdfWriter(const NetcdfWriter&) = delete;
    NetcdfWriter& operator=(const NetcdfWriter&) = delete;

    enum class Number { float32, float64 };
    int addDimension(const std::string& name, std::size_t length);
    /// Not-a-number is its fill value.
    int addVariable(const std::string& name, Number type, const std::vector<int>& dimensions);
    static constexpr int kFile = -1;
    /// Empty texts are left out.
    void addText(int variable, const std::string& attribute, const std::string& text);
    void addNumber(int variable, const std::string& attribute, int number);
    void endDefinitions();
    void write(int variable, const std::vector<std::size_t>& start, const std::vector<std::size_t>& count,
               const std::vector<double>& values);
    void close();

private:
    void require(int status, const char* what) const;
    std::string name_;
    int file_ = -1;
};

/// A text as a netCDF name: letters, digits and underscores.
std::string netcdfName(const std::string& text);

}  // namespace kscli
