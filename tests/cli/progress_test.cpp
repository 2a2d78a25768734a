// The line that shows the progress of a scan.

#include "program_run.h"

namespace fscan::test {
namespace {

/// Much more output than fits in a pipe, so that a scan can be stopped half-way.
class ProgressTest : public FscanTest {
protected:
    ProgressTest() {
        for (unsigned i = 0; i < files_; ++i) add("d/" + std::string(200, 'n') + std::to_string(i));
    }
    /// The standard error of a slow scan.
    std::string said(bool onTerminal, const char* terminal, unsigned short columns = 0) const {
        const RunResult result = run({"d/"}, {.environment = {{"TERM", terminal}},
                                              .watched = onTerminal,
                                              .columns = columns,
                                              .pause = std::chrono::milliseconds(250)});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(records(result.out).size(), files_);
        return result.err;
    }

    const unsigned files_ = 4000;
};

TEST_F(ProgressTest, IsShownOnTerminalsAndGoneInTheEnd) {
    // A line that wraps could not be erased, so on a narrow terminal it is cut.
    for (const auto& [columns, pattern] :
         {std::pair<unsigned short, const char*>{
              80, "[0-9]+ files, 1 directories, [0-9]+\\.[0-9] s, [0-9]+ files/s  .*/d/"},
          {20, "[0-9]+ files.*"}}) {
        const std::string erase = "\r\x1B[K";
        std::string text = said(true, "xterm", columns);
        ASSERT_THAT(text, testing::StartsWith(erase));
        int lines = 0;
        for (std::size_t end = 0; end != text.npos;) {
            text.erase(0, end + erase.size());
            end = text.find(erase);
            const std::string shown = text.substr(0, end);
            if (end == text.npos || shown.empty()) continue;
            ++lines;
            EXPECT_THAT(shown, testing::MatchesRegex(pattern));
            EXPECT_LT(shown.size(), columns);
        }
        EXPECT_GT(lines, 0);
        EXPECT_THAT(text, testing::StartsWith("4000 files in "));
    }
}

TEST_F(ProgressTest, IsShownNowhereElseButForALineOnTerminals) {
    EXPECT_THAT(said(true, "dumb"), testing::StartsWith("4000 files in "));
    EXPECT_EQ(said(false, "xterm"), "");
    const RunSettings terminal = {.watched = true, .cached = true};
    EXPECT_THAT(run({"d/", "--fresh"}, terminal).err, testing::EndsWith(" s, from a scan\r\n"));
    EXPECT_THAT(run({"d/"}, terminal).err, testing::HasSubstr(" s, from the cache"));
    EXPECT_EQ(run({"d/", "-q"}, terminal).err, "");
}

}  // namespace
}  // namespace fscan::test
