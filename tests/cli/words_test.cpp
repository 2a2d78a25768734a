// The words that the command line tells completions.

#include <set>
#include <sstream>

#include "build_paths.h"
#include "program_run.h"

namespace fscan::test {
namespace {

using testing::HasSubstr;

using Words = std::map<std::string, std::vector<std::string>>;

/// Kind and words of `fscan --list-words`.
Words listedWords() {
    Words words;
    std::istringstream lines(fscan({"--list-words"}).out);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(std::count(line.begin(), line.end(), '\t'), 3) << line;
        std::istringstream columns(line);
        std::string kind, names;
        std::getline(std::getline(columns, kind, '\t'), names, '\t');
        std::istringstream each(names);
        for (std::string name; each >> name;) words[kind].push_back(name);
    }
    return words;
}

TEST(Words, EveryOneIsUnderstood) {
    const Words words = listedWords();
    const std::string help = fscan({"--help"}).out;
    ASSERT_GT(words.at("option").size(), 20u);
    for (const std::string& option : words.at("option")) EXPECT_THAT(help, HasSubstr(option));
    for (const std::string& field : words.at("field"))
        EXPECT_THAT(fscan({"--check", field + " == " + field}).err, "") << field;
    for (const std::string& command : words.at("command"))
        EXPECT_THAT(fscan({"--check", command}).err, HasSubstr("operand expected")) << command;
}

// The tables of the language's page begin with the word.
TEST(Words, NoneOfTheLanguageIsMissing) {
    const Words words = listedWords();
    std::set<std::string> listed(words.at("field").begin(), words.at("field").end());
    for (const std::string& command : words.at("command"))
        listed.insert(command.substr(0, command.size() - 1));
    std::istringstream page(
        fscanner::readWholeFile(FSCANNER_SOURCE_DIR "/docs/expression-language.md"));
    std::set<std::string> documented;
    std::string table;
    for (std::string line; std::getline(page, line);) {
        if (line.starts_with("### Fields") || line.starts_with("## ")) table = line;
        if (!line.starts_with("| `")) continue;
        if (table == "### Fields of a search" || table == "## Commands")
            documented.insert(line.substr(3, line.find('`', 3) - 3));
    }
    EXPECT_EQ(listed, documented);
}

}  // namespace
}  // namespace fscan::test
