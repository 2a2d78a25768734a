#include "fscan/records/hyperlink.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

#include "fscan/text/paths.h"

namespace fscan {

namespace {

std::string variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

template <std::size_t N>
bool isOneOf(const std::string& value, const std::array<const char*, N>& known) {
    return std::find(known.begin(), known.end(), value) != known.end();
}

std::string percentEncoded(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = byte < 0x80 && (std::isalnum(byte) != 0 ||
                                           std::string_view("/-._~").find(c) != std::string::npos);
        result += plain ? std::string(1, c) : fmt::format("%{:02X}", byte);
    }
    return result;
}

}  // namespace

Hyperlinks::Hyperlinks() {
    char name[256];
    if (gethostname(name, sizeof name) == 0) {
        name[sizeof name - 1] = 0;
        host_ = percentEncoded(name);
    }
}

std::string Hyperlinks::begin(std::string_view path) const {
    return "\x1B]8;;file://" + host_ + percentEncoded(absolutePath(path)) + "\x1B\\";
}

bool Hyperlinks::terminalKnowsThem() {
    constexpr std::array programs = {"iTerm.app", "WezTerm", "vscode", "ghostty"};
    constexpr std::array terminals = {"xterm-kitty", "xterm-ghostty", "foot", "alacritty",
                                      "contour"};
    // From version 0.50 on, written as 5000.
    if (std::atoi(variable("VTE_VERSION").c_str()) >= 5000) return true;
    for (const char* name : {"KITTY_WINDOW_ID", "WT_SESSION", "KONSOLE_VERSION", "WEZTERM_PANE"})
        if (!variable(name).empty()) return true;
    return isOneOf(variable("TERM_PROGRAM"), programs) || isOneOf(variable("TERM"), terminals);
}

}  // namespace fscan
