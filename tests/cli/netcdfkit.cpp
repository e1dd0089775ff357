#include "netcdfkit.hpp"

#include <gtest/gtest.h>
#include <netcdf.h>

namespace clitest {
namespace {

void require(int status) { ASSERT_EQ(status, NC_NOERR) << nc_strerror(status); }

void writeTexts(int file, int variable, const std::map<std::string, std::string>& texts) {
    for (const auto& [key, text] : texts) {
        require(nc_put_att_text(file, variable, key.c_str(), text.size(), text.c_str()));
    }
}

int defineVariable(int file, const NcVariable& variable) {
    std::vector<int> dimensions;
    for (const std::string& name : variable.dimensions) {
        dimensions.push_back(-1);
        require(nc_inq_dimid(file, name.c_str(), &dimensions.back()));
    }
    int id = -1;
    const nc_type type = variable.isFloat ? NC_FLOAT : NC_DOUBLE;
    require(nc_def_var(file, variable.name.c_str(), type, static_cast<int>(dimensions.size()), dimensions.data(), &id));
    writeTexts(file, id, variable.texts);
    for (const auto& [key, number] : variable.numbers) {
        require(nc_put_att_double(file, id, key.c_str(), type, 1, &number));
    }
    return id;
}

}  // namespace

void writeNetcdf(const std::filesystem::path& name, const NcFile& file) {
    int id = -1;
    require(nc_create(name.c_str(), (file.isClassic ? NC_64BIT_OFFSET : NC_NETCDF4) | NC_CLOBBER, &id));
    for (const auto& [dimension, length] : file.dimensions) {
        int unused = 0;
        require(nc_def_dim(id, dimension.c_str(), length, &unused));
    }
    std::vector<int> variables;
    for (const NcVariable& variable : file.variables) variables.push_back(defineVariable(id, variable));
    writeTexts(id, NC_GLOBAL, file.texts);
    require(nc_enddef(id));
    for (std::size_t v = 0; v < variables.size(); ++v) {
        require(nc_put_var_double(id, variables[v], file.variables[v].values.data()));
    }
    require(nc_close(id));
}

NcVariable readNetcdf(const std::filesystem::path& name, const std::string& variable) {
    NcVariable result;
    result.name = variable;
    int file = -1;
    int id = -1;
    const int opened = nc_open(name.c_str(), NC_NOWRITE, &file);
    EXPECT_EQ(opened, NC_NOERR) << name;
    if (opened != NC_NOERR) return result;
    const int found = nc_inq_varid(file, variable.c_str(), &id);
    EXPECT_EQ(found, NC_NOERR) << variable << " in " << name;
    if (found == NC_NOERR) {
        int rank = 0;
        int attributes = 0;
        nc_type type = NC_NAT;
        require(nc_inq_var(file, id, nullptr, &type, &rank, nullptr, &attributes));
        result.isFloat = type == NC_FLOAT;
        std::vector<int> dimensions(static_cast<std::size_t>(rank));
        require(nc_inq_vardimid(file, id, dimensions.data()));
        std::size_t size = 1;
        for (int dimension : dimensions) {
            char text[NC_MAX_NAME + 1] = "";
            std::size_t length = 0;
            require(nc_inq_dim(file, dimension, text, &length));
            result.dimensions.emplace_back(text);
            size *= length;
        }
        for (int a = 0; a < attributes; ++a) {
            char key[NC_MAX_NAME + 1] = "";
            nc_type attributeType = NC_NAT;
            std::size_t length = 0;
            require(nc_inq_attname(file, id, a, key));
            require(nc_inq_att(file, id, key, &attributeType, &length));
            if (attributeType != NC_CHAR) continue;
            std::string text(length, '\0');
            require(nc_get_att_text(file, id, key, text.data()));
            result.texts[key] = text;
        }
        result.values.resize(size);
        require(nc_get_var_double(file, id, result.values.data()));
    }
    require(nc_close(file));
    return result;
}

}  // namespace clitest
