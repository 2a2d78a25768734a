// The words that the command line prints for completions.

#include <set>
#include <sstream>

#include "build_paths.h"
#include "program_run.h"

namespace fscan::test {
namespace {

// The tables of the language's page begin with the word. The manual's test asks for the others.
TEST(Words, OfTheLanguageAreThoseOfItsPageAndUnderstood) {
    std::set<std::string> listed;
    std::istringstream lines(fscan({"--list-words"}).out);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(std::count(line.begin(), line.end(), '\t'), 3) << line;
        std::istringstream columns(line);
        std::string kind, names;
        std::getline(std::getline(columns, kind, '\t'), names, '\t');
        if (kind != "field" && kind != "command") continue;
        std::istringstream each(names);
        for (std::string name; each >> name;) {
            const bool field = kind == "field";
            EXPECT_THAT(fscan({"--check", field ? name + " == " + name : name}).err,
                        testing::HasSubstr(field ? "" : "operand expected"));
            listed.insert(field ? name : name.substr(0, name.size() - 1));
        }
    }
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
