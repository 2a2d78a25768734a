#include "fscan/text/size_text.h"

#include <fmt/format.h>

#include <cctype>
#include <charconv>

namespace fscan {

namespace {

constexpr std::string_view units = "KMGTPE";

}  // namespace

std::optional<unsigned long long> parseSize(std::string_view text) {
    unsigned shift = 0;
    if (!text.empty() && std::isalpha(static_cast<unsigned char>(text.back()))) {
        const int letter = std::toupper(static_cast<unsigned char>(text.back()));
        const std::size_t unit = units.substr(0, 4).find(static_cast<char>(letter));
        if (unit == units.npos) return std::nullopt;
        shift = static_cast<unsigned>(unit + 1) * 10;
        text.remove_suffix(1);
    }
    unsigned long long number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    // The criteria's numbers have a sign.
    constexpr unsigned long long most = ~0ULL >> 1;
    if (text.empty() || stop != end || error != std::errc() || number > most >> shift)
        return std::nullopt;
    return number << shift;
}

std::string sizeText(unsigned long long bytes) {
    if (bytes < 1024) return std::to_string(bytes);
    std::size_t unit = 0;
    double value = static_cast<double>(bytes) / 1024;
    // What would be rounded to 1024 is one of the next unit.
    for (; value >= 1023.5 && unit + 1 < units.size(); value /= 1024) ++unit;
    return fmt::format("{:.{}f}{}", value, value < 9.95 ? 1 : 0, units[unit]);
}

}  // namespace fscan
