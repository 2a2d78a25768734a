#pragma once

#include <string>
#include <string_view>

namespace fscan {

/// Makes paths that a terminal lets the user click.
class Hyperlinks {
public:
    Hyperlinks();
    /// What begins the link to a path, which is absolute or of the current directory.
    std::string begin(std::string_view path) const;
    static std::string_view end() { return "\x1B]8;;\x1B\\"; }

    /// Whether the terminal says that it is one of those that know them.
    static bool terminalKnowsThem();

private:
    std::string host_;
};

}  // namespace fscan
