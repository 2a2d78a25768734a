// Criteria on the command line: how they are joined, and how they are shown.

#include "program_run.h"

namespace fscan::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class CriteriaTest : public FscanTest {
protected:
    static constexpr const char* kWays[] = {"--no-cache", "--fresh", "--max-age=1h"};

    RunResult runIn(const char* way, Arguments arguments) const {
        arguments.insert(arguments.begin(), way);
        return run(arguments, {.cached = true});
    }
};

TEST_F(CriteriaTest, AllCriteriaAndNamesMustHold) {
    add("small", "1");
    add("large", std::string(5000, 'x'));
    add("large.txt", std::string(6000, 'x'));
    EXPECT_THAT(found({"-w", "  [SIZE] > 4096 ", "-n", "*.txt"}), ElementsAre("./large.txt"));
    // An "or" in one criteria does not extend to another.
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
        {"[SIZE] > 99999999999999999999", "           ^"},
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
    // No index is named where there is none, or it would not be used.
    for (const char* none :
         {"[SIZE] == 5", "[FILENAME] == \"a\" && type(\"/\", \"x\")", "[FILENAME] == \"kilo\""})
        EXPECT_THAT(run({"-i", "--check", none}).out, Not(HasSubstr("index:"))) << none;
}

TEST_F(CriteriaTest, FilesThatCannotBeDecidedAreCounted) {
    add("a*", "1");
    add("b?", "1");
    add("c", "1");
    for (const char* way : kWays) {
        const RunResult all = runIn(way, {"-w", "[FILENAME] == \"*\"", "--summary", "json"});
        EXPECT_EQ(all.status, 0);
        EXPECT_EQ(all.out, "./c\n");
        EXPECT_THAT(all.err, HasSubstr("the criteria could not be decided for 2 files\n"));
        EXPECT_THAT(all.err, HasSubstr("\"complete\":false"));
        EXPECT_THAT(all.err, HasSubstr("\"undecided\":2"));
        EXPECT_EQ(runIn(way, {"--strict", "-w", "[FILENAME] == \"*\""}).status, 3);
        // These names are decided by the user's own pattern or by another condition.
        for (const Arguments& decided : {Arguments{"-n", "*"},
                                         {"-n", "c", "-w", "[FILENAME] == \"*\""},
                                         {"-w", "[FILENAME] == \"*\" && [SIZE] > 7"}}) {
            Arguments asked = decided;
            asked.push_back("--strict");
            EXPECT_LE(runIn(way, asked).status, 1);
            EXPECT_EQ(runIn(way, asked).err, "");
        }
    }
    const RunResult named = run({"--errors", "-w", "1 / [SIZE] == 1 / ([SIZE] - 1)"});
    EXPECT_THAT(named.err, HasSubstr("fscan: ./c: the criteria cannot be decided\n"));
}

}  // namespace
}  // namespace fscan::test
