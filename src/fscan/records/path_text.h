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

/// The colours of the user's LS_COLORS, or default ones where that is not set.
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

/// Whether the output is to have colours.
bool wantsColors(const Options& options, bool terminal);

/// Makes paths into hyperlinks, which the user can click on a terminal.
class Hyperlinks {
public:
    Hyperlinks();
    /// The start of the link to a path, which is absolute or relative to the current directory.
    std::string begin(std::string_view path) const;
    static std::string_view end() { return "\x1B]8;;\x1B\\"; }

    /// Whether the environment names a terminal that supports hyperlinks.
    static bool terminalKnowsThem();

private:
    std::string host_;
};

/// Writes paths the way the user is to see them: with colours, as links, or as they are.
class PathText {
public:
    PathText(const Options& options, bool terminal);
    void write(const Match& match, Output& out) const;
    /// How much must be known of matches: colours depend on the kind of file.
    FactsNeeded needsFacts() const { return colors_ ? FactsNeeded::known : FactsNeeded::none; }

private:
    void writeColored(const Match& match, Output& out) const;

    std::optional<Colors> colors_;
    std::optional<Hyperlinks> links_;
};

}  // namespace fscan
