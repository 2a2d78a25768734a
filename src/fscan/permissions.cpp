#include "permissions.h"

#include <fmt/xchar.h>

#include <array>

#include "criteria.h"
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

std::wstring condition(unsigned mask, bool all) {
    return all ? fmt::format(L"([ATTR] & {0}) == {0}", mask)
               : fmt::format(L"([ATTR] & {}) != 0", mask);
}

std::optional<std::wstring> oneCriteria(std::string_view text) {
    const std::size_t plus = text.find('+');
    const bool forAnyone = plus == text.npos || plus == 0;
    const auto who = bitsOf(forAnyone ? "a" : text.substr(0, plus), classes);
    const std::string_view letters = plus == text.npos ? text : text.substr(plus + 1);
    const auto access = bitsOf(letters, accesses);
    if (!who || !access || letters.empty()) return std::nullopt;
    if (!forAnyone) return condition(*who & *access, true);
    std::wstring criteria;
    for (const Letter& one : accesses)
        if ((*access & one.bits) != 0) andAlso(criteria, condition(one.bits, false));
    return criteria;
}

}  // namespace

std::optional<std::wstring> permissionCriteria(std::string_view text) {
    std::wstring criteria;
    for (;;) {
        const std::size_t comma = text.find(',');
        const auto one = oneCriteria(text.substr(0, comma));
        if (!one) return std::nullopt;
        andAlso(criteria, *one);
        if (comma == text.npos) return criteria;
        text.remove_prefix(comma + 1);
    }
}

}  // namespace fscan
