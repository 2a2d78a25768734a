#include "fscan/text/permissions.h"

#include <fmt/xchar.h>

#include <array>

#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

namespace {

struct Letter {
    char letter;
    unsigned bits;
};

// The nine bits follow each other, the owner's reading first.
constexpr unsigned ownerRead = fscanner::FS_ATTR_OWNER_READ;
constexpr std::array<Letter, 4> classes = {{{'u', ownerRead * 7},
                                            {'g', ownerRead * 7 << 3},
                                            {'o', ownerRead * 7 << 6},
                                            {'a', ownerRead * 0777}}};
constexpr std::array<Letter, 3> accesses = {
    {{'r', ownerRead * 0111}, {'w', ownerRead * 0222}, {'x', ownerRead * 0444}}};

// The bits of all letters; nothing where one of them is none.
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

// Adds the tests of "u+w" or "x"; false where it is neither.
bool addTests(std::string_view text, std::vector<PermissionTest>& tests) {
    const std::size_t plus = text.find('+');
    const bool forAnyone = plus == text.npos || plus == 0;
    const auto who = bitsOf(forAnyone ? "a" : text.substr(0, plus), classes);
    const std::string_view letters = plus == text.npos ? text : text.substr(plus + 1);
    const auto access = bitsOf(letters, accesses);
    if (!who || !access || letters.empty()) return false;
    if (!forAnyone) tests.push_back({*who & *access, true});
    for (const Letter& one : accesses)
        if (forAnyone && (*access & one.bits) != 0) tests.push_back({one.bits, false});
    return true;
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

}  // namespace fscan
