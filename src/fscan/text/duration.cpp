#include "fscan/text/duration.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace fscan {

namespace {

struct Unit {
    char letter;
    const char* name;
    unsigned seconds;
};

constexpr std::array<Unit, 4> units = {
    {{'d', "d", 86400}, {'h', "h", 3600}, {'m', "min", 60}, {'s', "s", 1}}};

/// The seconds of the unit that a text ends with, which is cut off.
unsigned takeUnit(std::string_view& text) {
    const auto unit = std::find_if(units.begin(), units.end(),
                                   [&text](const Unit& u) { return text.ends_with(u.letter); });
    if (unit == units.end()) return 1;
    text.remove_suffix(1);
    return unit->seconds;
}

}  // namespace

std::optional<unsigned> parseDuration(std::string_view text, unsigned limit) {
    const unsigned scale = takeUnit(text);
    unsigned long long number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (stop != end || text.empty() || error == std::errc::invalid_argument) return std::nullopt;
    if (error != std::errc() || number > limit / scale) return limit;
    return static_cast<unsigned>(number) * scale;
}

std::string durationText(unsigned long long seconds) {
    for (const Unit& unit : units)
        // Two of a unit are told better by it than by many of the next.
        if (seconds >= 2ULL * unit.seconds)
            return fmt::format("{} {}", seconds / unit.seconds, unit.name);
    return fmt::format("{} s", seconds);
}

}  // namespace fscan
