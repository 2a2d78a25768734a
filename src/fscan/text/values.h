#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Values that users write and read, each with its parser and its printer.
namespace fscan {

/// Reads "4096", "10k", "5M", "2G", "1T": bytes, with units of powers of 1024. Nothing for
/// another text, and for a number that is too large.
std::optional<unsigned long long> parseSize(std::string_view text);

/// "512", "4.0K", "1.5M", "12G": at most five characters.
std::string sizeText(unsigned long long bytes);

/// Reads "90s", "10m", "2h", "1d", or seconds without a unit. Nothing where the text
/// is none of these; durations beyond `limit` seconds count as `limit`.
std::optional<unsigned> parseDuration(std::string_view text, unsigned limit);

/// "35 s", "12 min", "3 h", "2 d": the largest unit that fits, rounded down.
std::string durationText(unsigned long long seconds);

/// Reads a moment: "2h" (two hours ago), "2026-11-21", "2026-11-21 07:30" or
/// "2026-11-21T07:30:15", in local time. Nothing where the text is none of these.
std::optional<std::time_t> parseMoment(const std::string& text, std::time_t now);

/// "2026-11-21 07:30", in local time.
std::string momentText(std::time_t moment);
/// "2026-11-21T07:30:15Z".
std::string utcText(std::time_t moment);

/// Bits of [ATTR] of which all must be set, or any.
struct PermissionTest {
    unsigned bits = 0;
    bool all = false;

    bool holds(unsigned attributes) const {
        return all ? (attributes & bits) == bits : (attributes & bits) != 0;
    }
    std::wstring criteria() const;
};

/// Reads "x", "u+w", "go+r", "u+w,o+r" into tests that must all hold. After "u", "g" or "o" all
/// the named bits must be set; without them one of the three is enough: "x" is executable by
/// anyone. Nothing where the text is none of these.
std::optional<std::vector<PermissionTest>> permissionTests(std::string_view text);

/// Whether both are attributes of the same kind of file. 0 stands for an unknown kind, which is
/// the same as any.
bool isSameKind(unsigned attributes, unsigned others);
/// "file", "directory", "link", "device" or "other".
const char* kindText(unsigned attributes);
/// "-rw-r--r--".
std::string attributeText(unsigned attributes);

}  // namespace fscan
