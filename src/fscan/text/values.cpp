#include "fscan/text/values.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <limits>
#include <span>

#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

namespace {

constexpr std::string_view kSizeUnits = "KMGTPE";

}  // namespace

namespace {

/// The power of 2 of the unit that the text ends with, which is cut off: "k", "kB" or "KiB". None
/// where the last letters are no unit.
std::optional<unsigned> takeSizeUnit(std::string_view& text) {
    const auto endsWith = [&text](char letter) {
        return !text.empty() && std::toupper(static_cast<unsigned char>(text.back())) == letter;
    };
    const bool bytes = endsWith('B');
    if (bytes) text.remove_suffix(1);
    const bool binary = bytes && endsWith('I');
    if (binary) text.remove_suffix(1);
    for (unsigned unit = 0; unit < 4; ++unit) {
        if (!endsWith(kSizeUnits[unit])) continue;
        text.remove_suffix(1);
        return (unit + 1) * 10;
    }
    if (binary) return std::nullopt;
    return 0;
}

}  // namespace

std::optional<unsigned long long> parseSize(std::string_view text) {
    const std::optional<unsigned> shift = takeSizeUnit(text);
    const std::string_view digits = text.substr(0, text.find('.'));
    unsigned long long number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    // The numbers of criteria are signed.
    constexpr unsigned long long most = ~0ULL >> 1;
    if (!shift || digits.empty() || stop != end || error != std::errc() || number > most >> *shift)
        return std::nullopt;
    number <<= *shift;
    if (digits.size() == text.size()) return number;
    double part = 0;
    const std::string_view fraction = text.substr(digits.size());
    const bool isDigits = fraction.size() > 1 &&
                          fraction.find_first_not_of("0123456789", 1) == std::string_view::npos;
    if (!isDigits || *shift == 0) return std::nullopt;
    std::from_chars(fraction.data(), fraction.data() + fraction.size(), part,
                    std::chars_format::fixed);
    return number + static_cast<unsigned long long>(part * static_cast<double>(1ULL << *shift));
}

std::optional<SizeRange> parseSizeRange(std::string_view text) {
    const std::size_t dots = text.find("..");
    SizeRange range;
    if (dots == text.npos) {
        const auto size = parseSize(text);
        if (!size) return std::nullopt;
        return SizeRange{*size, *size};
    }
    const std::string_view first = text.substr(0, dots), last = text.substr(dots + 2);
    if (first.empty() && last.empty()) return std::nullopt;
    const auto least = first.empty() ? range.least : parseSize(first);
    const auto most = last.empty() ? range.most : parseSize(last);
    if (!least || !most || *least > *most) return std::nullopt;
    return SizeRange{*least, *most};
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

/// Of those that are written, the largest come first.
constexpr std::array<TimeUnit, 6> kTimeUnits = {{{'d', "d", 86400},
                                                 {'h', "h", 3600},
                                                 {'m', "min", 60},
                                                 {'s', "s", 1},
                                                 {'w', "w", 7 * 86400},
                                                 {'y', "y", 365 * 86400}}};
constexpr std::size_t kWrittenUnits = 4;

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
    for (const TimeUnit& unit : std::span(kTimeUnits).first(kWrittenUnits))
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

constexpr unsigned kSpecialBits = 07000;

// The bits of [ATTR] for permission bits of a mode, whose order is the other way round.
unsigned storedBits(unsigned mode) {
    unsigned bits = 0;
    for (unsigned i = 0; i < 9; ++i)
        if ((mode & 0400U >> i) != 0) bits |= kOwnerRead << i;
    return bits;
}

// Adds the test for "4000" or "=644"; false for any other text.
bool addMode(std::string_view text, Permissions& tests) {
    const bool exactly = text.starts_with('=');
    if (exactly) text.remove_prefix(1);
    unsigned mode = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, mode, 8);
    if (text.empty() || stop != end || error != std::errc() || mode > 07777) return false;
    if (exactly)
        tests.others.push_back({mode, ModeTest::How::exactly});
    else if ((mode & kSpecialBits) != 0)
        tests.others.push_back({mode, ModeTest::How::all});
    else
        tests.stored.push_back({storedBits(mode), true});
    return true;
}

// Adds the test for "u+s", "g+s", "s" (one of them) or "t"; false for any other text.
bool addSpecial(std::string_view who, std::string_view letters, Permissions& tests) {
    constexpr unsigned setUser = 04000, setGroup = 02000, sticky = 01000;
    if (letters == "t" && (who.empty() || who == "o" || who == "a")) {
        tests.others.push_back({sticky, ModeTest::How::all});
        return true;
    }
    if (letters != "s" || who.find_first_not_of("ug") != who.npos) return false;
    const bool user = who.find('u') != who.npos, group = who.find('g') != who.npos;
    if (who.empty())
        tests.others.push_back({setUser | setGroup, ModeTest::How::any});
    else
        tests.others.push_back({(user ? setUser : 0) | (group ? setGroup : 0), ModeTest::How::all});
    return true;
}

// Adds the tests for a text such as "u+w" or "x"; false for any other text.
bool addTests(std::string_view text, Permissions& permissions) {
    if (addMode(text, permissions)) return true;
    const std::size_t plus = text.find('+');
    const bool forAnyone = plus == text.npos || plus == 0;
    const std::string_view letters = plus == text.npos ? text : text.substr(plus + 1);
    const std::string_view named = forAnyone ? "" : text.substr(0, plus);
    if (addSpecial(named, letters, permissions)) return true;
    const auto who = bitsOf(forAnyone ? "a" : named, kClasses);
    const auto access = bitsOf(letters, kAccesses);
    std::vector<PermissionTest>& tests = permissions.stored;
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

std::optional<Permissions> parsePermissions(std::string_view text) {
    Permissions tests;
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
