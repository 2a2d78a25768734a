#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fscan {

/// Bits of [ATTR] of which all must be set, or any.
struct PermissionTest {
    unsigned bits = 0;
    bool all = false;

    bool holds(unsigned attributes) const {
        return all ? (attributes & bits) == bits : (attributes & bits) != 0;
    }
    std::wstring criteria() const;
};

/// Reads "x", "u+w", "go+r", "u+w,o+r" and makes tests of it that must all hold. Bits with a
/// "who" must all be set; of bits without one any of the three. Nothing where the text is
/// none of these.
std::optional<std::vector<PermissionTest>> permissionTests(std::string_view text);

}  // namespace fscan
