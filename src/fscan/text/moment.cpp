#include "fscan/text/moment.h"

#include <limits>

#include "fscan/text/duration.h"

namespace fscan {

namespace {

std::string formatted(const std::tm& parts, const char* format) {
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, format, &parts));
}

// The local time that the text says in this format; nothing where it says another day
// than the calendar knows.
std::optional<std::time_t> parseDate(const std::string& text, const char* format) {
    std::tm parts{};
    const char* const end = strptime(text.c_str(), format, &parts);
    if (end == nullptr || *end != 0) return std::nullopt;
    parts.tm_isdst = -1;
    const int day = parts.tm_mday;
    const std::time_t moment = std::mktime(&parts);
    if (moment == -1 || parts.tm_mday != day) return std::nullopt;
    return moment;
}

}  // namespace

std::optional<std::time_t> parseMoment(const std::string& text, std::time_t now) {
    if (const auto ago = parseDuration(text, std::numeric_limits<unsigned>::max()))
        return now - static_cast<std::time_t>(*ago);
    for (const char* format :
         {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M", "%Y-%m-%dT%H:%M:%S"})
        if (const auto moment = parseDate(text, format)) return moment;
    return std::nullopt;
}

std::string momentText(std::time_t moment) {
    std::tm parts{};
    return localtime_r(&moment, &parts) == nullptr ? "?" : formatted(parts, "%Y-%m-%d %H:%M");
}

std::string utcText(std::time_t moment) {
    std::tm parts{};
    return gmtime_r(&moment, &parts) == nullptr ? "" : formatted(parts, "%Y-%m-%dT%H:%M:%SZ");
}

}  // namespace fscan
