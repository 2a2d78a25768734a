#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "fscan/match/match.h"

namespace fscan {

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

}  // namespace fscan
