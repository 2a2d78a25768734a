#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace fscan {

using Json = nlohmann::ordered_json;

/// The value in one line. Bytes that are no UTF-8 become U+FFFD.
std::string jsonText(const Json& value);

/// Adds a text of any bytes to the object. Where it is no UTF-8, it is also added as
/// "NAME_base64".
void putBytes(Json& object, const std::string& name, const std::string& text);

}  // namespace fscan
