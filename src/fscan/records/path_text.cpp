#include "fscan/records/path_text.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_fileinfo.h"

namespace fscan {

namespace {

bool isCode(std::string_view text) {
    return text.find_first_not_of("0123456789;") == text.npos &&
           text.find_first_not_of("0;") != text.npos;
}

}  // namespace

Colors::Colors() {
    const char* settings = std::getenv("LS_COLORS");
    read(settings != nullptr && *settings != 0 ? settings : "di=01;34:ln=01;36:ex=01;32:cd=01;33");
}

// "kind=codes:*ending=codes:..."
void Colors::read(std::string_view settings) {
    while (!settings.empty()) {
        const std::string_view setting = settings.substr(0, settings.find(':'));
        settings.remove_prefix(std::min(setting.size() + 1, settings.size()));
        const std::size_t equals = setting.find('=');
        if (equals == setting.npos || !isCode(setting.substr(equals + 1))) continue;
        const std::string name(setting.substr(0, equals));
        const std::string code(setting.substr(equals + 1));
        if (name.starts_with('*')) {
            endings_.emplace_back(name.substr(1), code);
        } else {
            kinds_[name] = code;
        }
    }
}

std::string_view Colors::kind(const std::string& name) const {
    const auto found = kinds_.find(name);
    return found == kinds_.end() ? std::string_view() : found->second;
}

std::string_view Colors::ofFile(const Match& match) const {
    using namespace fscanner;
    const unsigned attributes = match.facts.attributes;
    constexpr unsigned executable =
        FS_ATTR_OWNER_EXECUTE | FS_ATTR_GROUP_EXECUTE | FS_ATTR_OTHERS_EXECUTE;
    if ((attributes & FS_ATTR_SYMBOLIC_LINK) != 0) return kind("ln");
    if ((attributes & FS_ATTR_DIRECTORY) != 0) return kind("di");
    if ((attributes & FS_ATTR_CHARACTER_DEVICE) != 0) return kind("cd");
    const bool runs = (attributes & executable) != 0 && !kind("ex").empty();
    if ((attributes & FS_ATTR_REGULAR_FILE) != 0 && runs) return kind("ex");
    // The last setting counts.
    const auto ending = std::find_if(endings_.rbegin(), endings_.rend(), [&](const auto& setting) {
        return match.name().ends_with(setting.first);
    });
    return ending != endings_.rend() ? std::string_view(ending->second) : kind("fi");
}

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

bool wantsColors(const Options& options, bool terminal) {
    if (options.color != WhenToUse::automatic) return options.color == WhenToUse::always;
    const char* const refused = std::getenv("NO_COLOR");
    return terminal && terminalTakesCommands() && (refused == nullptr || *refused == 0);
}

namespace {

bool wantsLinks(const Options& options, bool terminal) {
    if (options.hyperlinks != WhenToUse::automatic) return options.hyperlinks == WhenToUse::always;
    return terminal && Hyperlinks::terminalKnowsThem();
}

void writeColoredText(std::string_view color, std::string_view text, Output& out) {
    if (text.empty()) return;
    if (!color.empty()) out.write(fmt::format("\x1B[{}m", color));
    out.writeForeign(text);
    if (!color.empty()) out.write("\x1B[0m");
}

}  // namespace

PathText::PathText(const Options& options, bool terminal) {
    if (options.nullTerminated) return;
    if (wantsColors(options, terminal)) colors_.emplace();
    if (wantsLinks(options, terminal)) links_.emplace();
}

void PathText::writeColored(const Match& match, Output& out) const {
    writeColoredText(colors_->ofDirectory(), match.path.substr(0, match.nameAt), out);
    writeColoredText(colors_->ofFile(match), match.name(), out);
}

void PathText::write(const Match& match, Output& out) const {
    if (links_) out.write(links_->begin(match.path));
    if (colors_) {
        writeColored(match, out);
    } else {
        out.writeForeign(match.path);
    }
    if (links_) out.write(Hyperlinks::end());
}

}  // namespace fscan
