#pragma once

#include <optional>

#include "fscan/match/match.h"
#include "fscan/records/colors.h"
#include "fscan/records/hyperlink.h"

namespace fscan {

class Output;
struct Options;

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
