#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace CLI {
class App;
}

namespace fscan {

class Output;

/// A word that the command line knows, for completions and the tests of the manual.
struct Word {
    std::string_view text;
    std::string_view value;  ///< what it is, or takes
    std::string_view help;
};

/// The drive group that a PATH begins with, as in "$remote::/srv": its word. The
/// path is left with what follows.
std::optional<std::string_view> takeDriveGroup(std::string& path);

/// The fields of a criteria ("[SIZE]"), its commands ("type(") and the groups of drives
/// ("$local::").
std::vector<std::string> wordsOfFields();
std::vector<std::string> wordsOfCommands();
std::vector<std::string> wordsOfGroups();

/// Prints all words, a line each: kind, word, value, help, with tabs between. The kinds
/// are option, field, command and group; an option's names have a space between them,
/// and one that takes no value has "-" there.
void listWords(const CLI::App& app, Output& out);

/// "; did you mean WORD?" with one of the known words, or nothing.
std::string suggestionText(std::string_view word, const std::vector<std::string>& known);

}  // namespace fscan
