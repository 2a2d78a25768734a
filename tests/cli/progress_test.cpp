// The line that tells how far a scan is.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "program_run.h"
#include "support/temporary_directory.h"

namespace fscan::test {

namespace {

/// Much more output than fits into a pipe, so that a scan can be held up half-way.
class ProgressTest : public testing::Test {
protected:
    ProgressTest() {
        std::filesystem::create_directory(tree_ / "d");
        for (unsigned i = 0; i < files_; ++i)
            fscanner::writeWholeFile(tree_ / ("d/" + std::string(200, 'n') + std::to_string(i)),
                                     "");
    }
    /// What a slow scan says on standard error.
    std::string said(bool onTerminal, const char* terminal, unsigned short columns = 0) const {
        const RunResult result = fscan({"d"}, {.directory = tree_.path(),
                                               .environment = {{"TERM", terminal}},
                                               .watched = onTerminal,
                                               .columns = columns,
                                               .pause = std::chrono::milliseconds(250)});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(records(result.out).size(), files_);
        return result.err;
    }

    const unsigned files_ = 4000;
    fscanner::TemporaryDirectory tree_{fscanner::memoryDirectory()};
};

TEST_F(ProgressTest, IsShownOnTerminalsAndGoneInTheEnd) {
    const std::string erase = "\r\x1B[K";
    const std::string text = said(true, "xterm");
    ASSERT_THAT(text, testing::StartsWith(erase));
    const std::size_t last = text.rfind(erase) + erase.size();
    EXPECT_THAT(text.substr(last), testing::StartsWith("4000 files in "));
    int lines = 0;
    for (std::size_t at = 0; at < last;) {
        at += erase.size();
        const std::size_t end = text.find(erase, at);
        const std::string shown = text.substr(at, end - at);
        at = end == text.npos ? last : end;
        if (at == last || shown.empty()) continue;
        ++lines;
        EXPECT_THAT(shown,
                    testing::MatchesRegex("[0-9]+ files, 1 directories, [0-9]+\\.[0-9] s  .*/d/"));
        EXPECT_LT(shown.size(), 80U);
    }
    EXPECT_GT(lines, 0);
}

/// A line that wraps could not be erased.
TEST_F(ProgressTest, FitsANarrowTerminal) {
    std::string text = said(true, "xterm", 20);
    text.erase(text.rfind("4000 files in "));
    EXPECT_THAT(text, testing::HasSubstr(" files"));
    const std::string erase = "\r\x1B[K";
    for (std::size_t at = 0, end = 0; end != text.npos; at = end + erase.size()) {
        end = text.find(erase, at);
        EXPECT_LT(text.substr(at, end == text.npos ? end : end - at).size(), 18U);
    }
}

TEST_F(ProgressTest, IsShownNowhereElse) {
    EXPECT_THAT(said(true, "dumb"), testing::StartsWith("4000 files in "));
    EXPECT_EQ(said(false, "xterm"), "");
}

}  // namespace

}  // namespace fscan::test
