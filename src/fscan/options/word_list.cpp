#include "fscan/options/word_list.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <span>

#include "fscan/output/output.h"

namespace fscan {

namespace {

constexpr std::array<Word, 5> fields = {{
    {"[FILENAME]", "TEXT", "The name, without its directory"},
    {"[SHORTFILENAME]", "TEXT", "A second, short name where there is one"},
    {"[SIZE]", "NUMBER", "Bytes"},
    {"[ATTR]", "NUMBER", "The sum of the attributes"},
    {"[PATHID]", "NUMBER", "The directory's number in the cache"},
}};

constexpr std::array<Word, 2> commands = {{
    {"type(", "PATH, TYPE", "Whether the file program names that type"},
    {"path(", "PATHID, NAME", "The full path of a file"},
}};

constexpr std::array<Word, 4> groups = {{
    {"$local::", "PATH", "Only local drives"},
    {"$remote::", "PATH", "Only remote drives"},
    {"$other::", "PATH", "Only drives of no other group"},
    {"$all::", "PATH", "Drives of every group"},
}};

std::vector<std::string> textsOf(std::span<const Word> words) {
    std::vector<std::string> texts;
    for (const Word& word : words) texts.emplace_back(word.text);
    return texts;
}

void listKind(std::string_view kind, std::span<const Word> words, Output& out) {
    for (const Word& word : words)
        out.write(fmt::format("{}\t{}\t{}\t{}\n", kind, word.text, word.value, word.help));
}

std::string namesOf(const CLI::Option& option) {
    std::string names;
    for (const std::string& name : option.get_snames())
        names += (names.empty() ? "-" : " -") + name;
    for (const std::string& name : option.get_lnames())
        names += (names.empty() ? "--" : " --") + name;
    return names;
}

}  // namespace

std::vector<std::string> wordsOfFields() {
    return textsOf(fields);
}

std::vector<std::string> wordsOfCommands() {
    return textsOf(commands);
}

std::vector<std::string> wordsOfGroups() {
    return textsOf(groups);
}

std::optional<std::string_view> takeDriveGroup(std::string& path) {
    const auto begins = [&path](const Word& word) { return path.starts_with(word.text); };
    const auto found = std::find_if(groups.begin(), groups.end(), begins);
    if (found == groups.end()) return std::nullopt;
    path.erase(0, found->text.size());
    return found->text.substr(0, found->text.size() - 2);
}

void listWords(const CLI::App& app, Output& out) {
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_group().empty()) continue;  // hidden
        out.write(fmt::format("option\t{}\t{}\t{}\n", namesOf(*option),
                              option->get_items_expected_max() > 0 ? option->get_type_name() : "-",
                              option->get_description()));
    }
    listKind("field", fields, out);
    listKind("command", commands, out);
    listKind("group", groups, out);
}

}  // namespace fscan
