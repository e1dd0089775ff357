#include "app/output.hpp"

#include <cmath>
#include <cstdlib>
#include <fstream>

#include "app/report.hpp"

namespace kscli {

std::string jsonText(const Json& json) {
    constexpr int kIndent = 2;
    return json.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
}

void printJson(const Json& json) { fmt::print("{}", jsonText(json)); }

Json orNull(double value, bool isKnown) { return isKnown && std::isfinite(value) ? Json(value) : Json(nullptr); }

double shortest(float value) { return std::strtod(fmt::format("{}", value).c_str(), nullptr); }

void writeText(const std::string& text, const std::string& name) {
    std::ofstream stream(name, std::ios::binary);
    stream << text;
    stream.close();
    if (!stream) fail("{} cannot be written; is the disk full?", name);
}

}  // namespace kscli
