// Criteria on the command line: what compiles, what is refused, and how it is said.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "program_run.h"
#include "support/temporary_directory.h"

namespace fscan::test {

namespace {

using fscanner::writeWholeFile;
using testing::ElementsAre;
using testing::HasSubstr;

const RunSettings utf8 = {.environment = {{"LC_ALL", "C.UTF-8"}}};

class CriteriaTest : public testing::Test {
protected:
    CriteriaTest() {
        writeWholeFile(tree_ / "small", "1");
        writeWholeFile(tree_ / "large", std::string(5000, 'x'));
        writeWholeFile(tree_ / "large.txt", std::string(6000, 'x'));
    }
    RunResult search(Arguments arguments) const {
        return fscan(arguments, {.directory = tree_.path()});
    }

    fscanner::TemporaryDirectory tree_;
};

TEST_F(CriteriaTest, AllCriteriaAndNamesMustHold) {
    EXPECT_THAT(records(search({"-w", "[SIZE] > 4096"}).out),
                ElementsAre("./large", "./large.txt"));
    EXPECT_THAT(records(search({"-w", "  [SIZE] > 4096 ", "-n", "*.txt"}).out),
                ElementsAre("./large.txt"));
    // An "or" in one does not reach into another.
    EXPECT_THAT(records(search({"-w", "[SIZE] == 1 || [SIZE] == 5000", "-w", "[SIZE] > 1"}).out),
                ElementsAre("./large"));
    EXPECT_THAT(records(search({"-n", "small", "-n", "large", "-w", "[SIZE] == 1 || 1"}).out),
                ElementsAre("./large", "./small"));
    EXPECT_THAT(records(search({"-i", "-w", "[FILENAME] == \"LARGE*\""}).out),
                ElementsAre("./large", "./large.txt"));
}

TEST_F(CriteriaTest, SizesBeyond32BitsAreKnown) {
    std::filesystem::resize_file(tree_ / "large", 5000000000ull);
    const RunResult result = search({"-l", "--bytes", "-w", "[SIZE] / 1000000 > 4999"});
    EXPECT_THAT(result.out, HasSubstr("  5000000000 "));
}

TEST_F(CriteriaTest, WrongCriteriaAreRefusedBeforeAnythingRuns) {
    const std::vector<Arguments> table = {
        {"-w", "1) || (1"},
        {"-w", "[SIZE"},
        {"-w", "[NOFIELD] == 1"},
        {"-w", "(1"},
        {"-w", ""},
        {"-w", "  "},
        {"-w", "\"text\""},
        {"-w", "1 2"},
        {"-w", "[SIZE] > 1", "-w", "&&"},
        {"-w", "[SIZE] == \"text\""},
        {"-w", "[FILENAME]"},
    };
    for (const Arguments& arguments : table) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const RunResult result = search(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, testing::StartsWith("fscan: criteria: "));
    }
}

/// The line and the column of the caret in a message, as a terminal shows them.
std::string lastLine(const std::string& text) {
    const std::size_t end = text.rfind('\n');
    return text.substr(text.rfind('\n', end - 1) + 1, end - text.rfind('\n', end - 1) - 1);
}

TEST_F(CriteriaTest, TheCaretStandsUnderThePlace) {
    // Wide characters take two columns, combining ones none.
    const std::vector<std::pair<std::string, std::string>> table = {
        {"[NOFIELD] == 1", "  ^"},
        {"1 == [NOFIELD]", "       ^"},
        {"  1 == [NOFIELD]", "       ^"},
        {"\"\xE6\x97\xA5\xE6\x9C\xAC\" == [NOFIELD]", "            ^"},
        {"\"e\xCC\x81\" == [NOFIELD]", "         ^"},
        {"\"\t\xFF\" == [NOFIELD]", "          ^"},
    };
    for (const auto& [criteria, caret] : table) {
        const RunResult result = fscan({"--check", criteria}, utf8);
        EXPECT_EQ(lastLine(result.err), caret) << result.err;
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(CriteriaTest, CheckShowsTreeFieldsAndIndex) {
    const RunResult indexed = fscan({"--check", " [FILENAME] == \"a b\" && [SIZE] > 5 "});
    EXPECT_EQ(indexed.status, 0);
    EXPECT_THAT(indexed.out, testing::StartsWith("tree:   "));
    EXPECT_THAT(indexed.out, HasSubstr("\nfields: FILENAME, SIZE\nindex:  FILENAME = a b\n"));
    const RunResult plain = fscan({"--check", "1 + 1"});
    EXPECT_EQ(records(plain.out).size(), 1u) << plain.out;
}

}  // namespace

}  // namespace fscan::test
