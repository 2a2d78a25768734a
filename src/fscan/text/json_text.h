#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace fscan {

using Json = nlohmann::ordered_json;

/// In one line; bytes that are no UTF-8 become U+FFFD.
std::string jsonText(const Json& value);

/// Adds a text of any bytes: where it is no UTF-8, also as "NAME_base64".
void putBytes(Json& object, const std::string& name, const std::string& text);

}  // namespace fscan
