#include "fscan/records/path_text.h"

#include <fmt/format.h>

#include <cstdlib>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/output/terminal.h"

namespace fscan {

namespace {

bool wantsColors(const Options& options, bool terminal) {
    if (options.color != WhenToUse::automatic) return options.color == WhenToUse::always;
    const char* const refused = std::getenv("NO_COLOR");
    return terminal && terminalTakesCommands() && (refused == nullptr || *refused == 0);
}

bool wantsLinks(const Options& options, bool terminal) {
    if (options.hyperlinks != WhenToUse::automatic) return options.hyperlinks == WhenToUse::always;
    return terminal && Hyperlinks::terminalKnowsThem();
}

void writeIn(std::string_view color, std::string_view text, Output& out) {
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
    writeIn(colors_->ofDirectory(), match.path.substr(0, match.nameAt), out);
    writeIn(colors_->ofFile(match), match.name(), out);
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
