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
    std::string_view value;  ///< its type, or the type of its value
    std::string_view help;
};

/// Takes the drive group off the front of a PATH such as "$remote::/srv"; returns "$remote",
/// or nothing where there is none.
std::optional<std::string_view> takeDriveGroup(std::string& path);

/// The fields of a criteria ("[SIZE]"), its commands ("type(") and the groups of drives
/// ("$local::").
std::vector<std::string> wordsOfFields();
std::vector<std::string> wordsOfCommands();
std::vector<std::string> wordsOfGroups();

/// Prints all words, a line each: kind, word, value and help, separated by tabs. The kinds
/// are option, field, command and group. The names of an option are separated by spaces; its
/// value is "-" where it takes none.
void listWords(const CLI::App& app, Output& out);

/// "; did you mean WORD?" with one of the known words, or nothing.
std::string suggestionText(std::string_view word, const std::vector<std::string>& known);

}  // namespace fscan
