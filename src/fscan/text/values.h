#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Values that users write and read, each with its parser and its printer.
namespace fscan {

/// Reads "4096", "10k", "1.5M", "2GB", "1TiB": bytes, with units of powers of 1024, rounded down.
/// Nothing for another text, and for a number that is too large.
std::optional<unsigned long long> parseSize(std::string_view text);

/// Sizes from one to another, both included.
struct SizeRange {
    unsigned long long least = 0;
    unsigned long long most = ~0ULL >> 1;

    bool holds(unsigned long long size) const { return least <= size && size <= most; }
};

/// Reads "4096" (exactly that), "1k..2M", "1k.." or "..2M". Nothing for another text, and where the
/// first bound is above the second.
std::optional<SizeRange> parseSizeRange(std::string_view text);

/// "512", "4.0K", "1.5M", "12G": at most five characters.
std::string sizeText(unsigned long long bytes);

/// Reads "90s", "10m", "2h", "1d", "3w", "1y" (365 days), or seconds without a unit. Nothing where
/// the text is none of these; durations beyond `limit` seconds count as `limit`.
std::optional<unsigned> parseDuration(std::string_view text, unsigned limit);

/// "35 s", "12 min", "3 h", "2 d": the largest unit that fits, rounded down.
std::string durationText(unsigned long long seconds);

/// Reads a moment: "2h" (two hours ago), "2026-11-21", "2026-11-21 07:30" or
/// "2026-11-21T07:30:15", in local time. Nothing where the text is none of these.
std::optional<std::time_t> parseMoment(const std::string& text, std::time_t now);

/// A moment as a file system has it.
struct FileTime {
    long seconds = 0;
    long nanoseconds = 0;
};

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

/// Permission bits of a file's mode, set-user-ID and the like included.
struct ModeTest {
    enum class How { all, any, exactly };

    unsigned bits = 0;
    How how = How::all;

    bool holds(unsigned mode) const {
        if (how == How::any) return (mode & bits) != 0;
        return (how == How::exactly ? mode & 07777 : mode & bits) == bits;
    }
};

/// Tests of permissions, all of which must hold. What [ATTR] has is tested in the engine.
struct Permissions {
    std::vector<PermissionTest> stored;
    std::vector<ModeTest> others;
};

/// Reads "644" (all of these bits), "=644" (exactly these), "x", "u+w", "go+r", "u+s", "u+w,o+r".
/// After "u", "g" or "o" all the named bits must be set; without them one of the three is enough:
/// "x" is executable by anyone. Nothing where the text is none of these.
std::optional<Permissions> parsePermissions(std::string_view text);

/// Whether both are attributes of the same kind of file. 0 stands for an unknown kind, which is
/// the same as any.
bool isSameKind(unsigned attributes, unsigned others);
/// "file", "directory", "link", "device" or "other".
const char* kindText(unsigned attributes);
/// "-rw-r--r--".
std::string attributeText(unsigned attributes);

}  // namespace fscan
