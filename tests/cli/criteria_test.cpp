// Criteria on the command line: how they join, and how they are shown.

#include "program_run.h"

namespace fscan::test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class CriteriaTest : public FscanTest {};

TEST_F(CriteriaTest, AllCriteriaAndNamesMustHold) {
    add("small", "1");
    add("large", std::string(5000, 'x'));
    add("large.txt", std::string(6000, 'x'));
    EXPECT_THAT(found({"-w", "  [SIZE] > 4096 ", "-n", "*.txt"}), ElementsAre("./large.txt"));
    // An "or" in one does not reach into another.
    EXPECT_THAT(found({"-w", "[SIZE] == 1 || [SIZE] == 5000", "-w", "[SIZE] > 1"}),
                ElementsAre("./large"));
    EXPECT_THAT(found({"-n", "small", "-n", "large", "-w", "[SIZE] == 1 || 1"}),
                ElementsAre("./large", "./small"));
    EXPECT_THAT(found({"-i", "-w", "[FILENAME] == \"LARGE*\""}),
                ElementsAre("./large", "./large.txt"));
}

/// The line of the caret in a message, as a terminal shows it.
std::string lastLine(const std::string& text) {
    const std::size_t end = text.rfind('\n');
    return text.substr(text.rfind('\n', end - 1) + 1, end - text.rfind('\n', end - 1) - 1);
}

TEST_F(CriteriaTest, TheCaretStandsUnderThePlace) {
    // Wide characters take two columns, combining ones none.
    const std::vector<std::pair<std::string, std::string>> table = {
        {"[NOFIELD] == 1", "  ^"},
        {"  1 == [NOFIELD]", "       ^"},
        {"\"\xE6\x97\xA5\xE6\x9C\xAC\" == [NOFIELD]", "            ^"},
        {"\"e\xCC\x81\" == [NOFIELD]", "         ^"},
        {"\"\t\xFF\" == [NOFIELD]", "          ^"},
    };
    for (const auto& [criteria, caret] : table)
        EXPECT_EQ(lastLine(run({"--check", criteria}).err), caret);
}

TEST_F(CriteriaTest, CheckShowsTreeFieldsAndIndex) {
    const RunResult indexed = run({"--check", " [FILENAME] == \"a b\" && [SIZE] > 5 "});
    EXPECT_EQ(indexed.status, 0);
    EXPECT_THAT(indexed.out, testing::StartsWith("tree:   "));
    EXPECT_THAT(indexed.out, HasSubstr("\nfields: FILENAME, SIZE\nindex:  FILENAME = a b\n"));
    EXPECT_EQ(found({"--check", "1 + 1"}).size(), 1u);
}

}  // namespace

}  // namespace fscan::test
