#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fscan/match/match.h"

namespace fscan {

class Output;
struct Options;

/// The colours of the user's LS_COLORS, or usual ones where that is not set.
class Colors {
public:
    Colors();
    /// The codes between "ESC [" and "m"; empty for no colour.
    std::string_view ofDirectory() const { return kind("di"); }
    std::string_view ofFile(const Match& match) const;

private:
    void read(std::string_view settings);
    std::string_view kind(const std::string& name) const;

    std::map<std::string, std::string> kinds_;
    std::vector<std::pair<std::string, std::string>> endings_;
};

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

/// Writes paths the way the user is to see them: with colours, as links, or as they are.
class PathText {
public:
    PathText(const Options& options, bool terminal);
    void write(const Match& match, Output& out) const;
    /// Whether it has to know what kind of file a match is.
    FactsNeeded needsFacts() const { return colors_ ? FactsNeeded::known : FactsNeeded::none; }

private:
    void writeColored(const Match& match, Output& out) const;

    std::optional<Colors> colors_;
    std::optional<Hyperlinks> links_;
};

}  // namespace fscan
