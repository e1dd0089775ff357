// Data on its way out: JSON on standard output and text files, whole or a Failure.
#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace kscli {

using Json = nlohmann::ordered_json;

/// JSON text ending in a line end. Texts of foreign headers may be in any encoding; what is not UTF-8 is replaced.
std::string jsonText(const Json& json);
void printJson(const Json& json);

/// The value, or null when it is not known or not a number.
Json orNull(double value, bool isKnown = true);
/// A float as short as it can be while it still gives the same float back.
double shortest(float value);

void writeText(const std::string& text, const std::string& name);

}  // namespace kscli
