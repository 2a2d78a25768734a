#include "fscan/text/values.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <limits>

#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

namespace {

constexpr std::string_view kSizeUnits = "KMGTPE";

}  // namespace

std::optional<unsigned long long> parseSize(std::string_view text) {
    unsigned shift = 0;
    if (!text.empty() && std::isalpha(static_cast<unsigned char>(text.back()))) {
        const int letter = std::toupper(static_cast<unsigned char>(text.back()));
        const std::size_t unit = kSizeUnits.substr(0, 4).find(static_cast<char>(letter));
        if (unit == kSizeUnits.npos) return std::nullopt;
        shift = static_cast<unsigned>(unit + 1) * 10;
        text.remove_suffix(1);
    }
    unsigned long long number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    // The numbers of criteria are signed.
    constexpr unsigned long long most = ~0ULL >> 1;
    if (text.empty() || stop != end || error != std::errc() || number > most >> shift)
        return std::nullopt;
    return number << shift;
}

std::string sizeText(unsigned long long bytes) {
    if (bytes < 1024) return std::to_string(bytes);
    std::size_t unit = 0;
    double value = static_cast<double>(bytes) / 1024;
    // A value that would be rounded to 1024 is shown in the next unit.
    for (; value >= 1023.5 && unit + 1 < kSizeUnits.size(); value /= 1024) ++unit;
    return fmt::format("{:.{}f}{}", value, value < 9.95 ? 1 : 0, kSizeUnits[unit]);
}

namespace {

struct TimeUnit {
    char letter;
    const char* name;
    unsigned seconds;
};

constexpr std::array<TimeUnit, 4> kTimeUnits = {
    {{'d', "d", 86400}, {'h', "h", 3600}, {'m', "min", 60}, {'s', "s", 1}}};

/// The seconds of the unit that a text ends with, which is cut off.
unsigned takeUnit(std::string_view& text) {
    const auto unit = std::find_if(kTimeUnits.begin(), kTimeUnits.end(),
                                   [&text](const TimeUnit& u) { return text.ends_with(u.letter); });
    if (unit == kTimeUnits.end()) return 1;
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
    for (const TimeUnit& unit : kTimeUnits)
        // A unit is used from two of it on: "90 min" is more exact than "1 h".
        if (seconds >= 2ULL * unit.seconds)
            return fmt::format("{} {}", seconds / unit.seconds, unit.name);
    return fmt::format("{} s", seconds);
}

namespace {

std::string formatted(const std::tm& parts, const char* format) {
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, format, &parts));
}

// The local time that the text gives in this format; nothing for a day that does not exist,
// such as February 30.
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

namespace {

struct Letter {
    char letter;
    unsigned bits;
};

// The nine bits are adjacent, the owner's read permission first.
constexpr unsigned kOwnerRead = fscanner::FS_ATTR_OWNER_READ;
constexpr std::array<Letter, 4> kClasses = {{{'u', kOwnerRead * 7},
                                             {'g', kOwnerRead * 7 << 3},
                                             {'o', kOwnerRead * 7 << 6},
                                             {'a', kOwnerRead * 0777}}};
constexpr std::array<Letter, 3> kAccesses = {
    {{'r', kOwnerRead * 0111}, {'w', kOwnerRead * 0222}, {'x', kOwnerRead * 0444}}};

// The bits of all letters; nothing where one of them is unknown.
template <std::size_t N>
std::optional<unsigned> bitsOf(std::string_view letters, const std::array<Letter, N>& known) {
    unsigned bits = 0;
    for (const char c : letters) {
        unsigned found = 0;
        for (const Letter& letter : known) found |= letter.letter == c ? letter.bits : 0;
        if (found == 0) return std::nullopt;
        bits |= found;
    }
    return bits;
}

// Adds the tests for a text such as "u+w" or "x"; false for any other text.
bool addTests(std::string_view text, std::vector<PermissionTest>& tests) {
    const std::size_t plus = text.find('+');
    const bool forAnyone = plus == text.npos || plus == 0;
    const auto who = bitsOf(forAnyone ? "a" : text.substr(0, plus), kClasses);
    const std::string_view letters = plus == text.npos ? text : text.substr(plus + 1);
    const auto access = bitsOf(letters, kAccesses);
    if (!who || !access || letters.empty()) return false;
    if (!forAnyone) tests.push_back({*who & *access, true});
    for (const Letter& one : kAccesses)
        if (forAnyone && (*access & one.bits) != 0) tests.push_back({one.bits, false});
    return true;
}

char typeLetter(unsigned attributes) {
    if ((attributes & fscanner::FS_ATTR_SYMBOLIC_LINK) != 0) return 'l';
    if ((attributes & fscanner::FS_ATTR_DIRECTORY) != 0) return 'd';
    if ((attributes & fscanner::FS_ATTR_REGULAR_FILE) != 0) return '-';
    return (attributes & fscanner::FS_ATTR_CHARACTER_DEVICE) != 0 ? 'c' : '?';
}

}  // namespace

std::wstring PermissionTest::criteria() const {
    return all ? fmt::format(L"([ATTR] & {0}) == {0}", bits)
               : fmt::format(L"([ATTR] & {}) != 0", bits);
}

std::optional<std::vector<PermissionTest>> permissionTests(std::string_view text) {
    std::vector<PermissionTest> tests;
    for (;;) {
        const std::size_t comma = text.find(',');
        if (!addTests(text.substr(0, comma), tests)) return std::nullopt;
        if (comma == text.npos) return tests;
        text.remove_prefix(comma + 1);
    }
}

bool isSameKind(unsigned attributes, unsigned others) {
    return attributes == 0 || others == 0 || typeLetter(attributes) == typeLetter(others);
}

const char* kindText(unsigned attributes) {
    switch (typeLetter(attributes)) {
        case 'l':
            return "link";
        case '-':
            return "file";
        case 'd':
            return "directory";
        case 'c':
            return "device";
        default:
            return "other";
    }
}

std::string attributeText(unsigned attributes) {
    std::string text(1, typeLetter(attributes));
    for (unsigned i = 0; i < 9; ++i)
        text += (attributes & kOwnerRead << i) != 0 ? "rwx"[i % 3] : '-';
    return text;
}

}  // namespace fscan
