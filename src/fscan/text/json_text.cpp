#include "fscan/text/json_text.h"

#include <algorithm>
#include <string_view>

namespace fscan {

namespace {

bool isUtf8(const std::string& text) try {
    const bool ascii =
        std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
    if (!ascii) static_cast<void>(Json(text).dump());
    return true;
} catch (const Json::type_error&) {
    return false;
}

std::string base64(std::string_view bytes) {
    constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::string_view three = bytes.substr(at, 3);
        unsigned bits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            bits = bits << 8 | (i < three.size() ? static_cast<unsigned char>(three[i]) : 0U);
        for (unsigned i = 0; i < 4; ++i)
            text += i <= three.size() ? digits[bits >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

}  // namespace

std::string jsonText(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void putBytes(Json& object, const std::string& name, const std::string& text) {
    object[name] = text;
    if (!isUtf8(text)) object[name + "_base64"] = base64(text);
}

}  // namespace fscan
