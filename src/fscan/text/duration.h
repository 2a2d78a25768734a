#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fscan {

/// Reads "90s", "10m", "2h", "1d", or seconds without a unit. Nothing where the text
/// is none of these; what is beyond `limit` seconds counts as `limit`.
std::optional<unsigned> parseDuration(std::string_view text, unsigned limit);

/// "35 s", "12 min", "3 h", "2 d": the largest unit that fits, rounded down.
std::string durationText(unsigned long long seconds);

}  // namespace fscan
