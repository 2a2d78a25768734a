#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace fscan {

/// Reads a moment: "2h" (so long ago), "2026-11-21", "2026-11-21 07:30" or
/// "2026-11-21T07:30:15", in local time. Nothing where the text is none of these.
std::optional<std::time_t> parseMoment(const std::string& text, std::time_t now);

/// "2026-11-21 07:30", in local time.
std::string momentText(std::time_t moment);
/// "2026-11-21T07:30:15Z".
std::string utcText(std::time_t moment);

}  // namespace fscan
