// Answers from the cache: how old they may be, what is told about them, and what signals
// and lost readers leave behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <thread>

#include "fscanner/engine/cache.h"
#include "program_run.h"
#include "support/temporary_directory.h"

namespace fscan::test {

namespace {

using fscanner::writeWholeFile;
using testing::ElementsAre;
using testing::HasSubstr;

class CacheTest : public testing::Test {
protected:
    CacheTest() {
        std::filesystem::create_directories(tree_ / "d/sub");
        writeWholeFile(tree_ / "d/a", "1");
        writeWholeFile(tree_ / "d/sub/b", "22");
    }

    RunResult run(Arguments arguments, RunSettings settings = {}) const {
        settings.directory = tree_.path();
        settings.environment["LC_ALL"] = "C.UTF-8";
        settings.environment["XDG_CACHE_HOME"] = home_.path();
        settings.cached = true;
        return fscan(arguments, settings);
    }
    /// What is found, by a run that says nothing and does not fail.
    Arguments found(const Arguments& arguments) const {
        const RunResult result = run(arguments);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        return records(result.out);
    }
    /// A shell command of which $0 is fscan.
    RunResult shell(const std::string& command) const {
        return runProgram(
            "sh", {"-c", command, FSCAN_PROGRAM},
            {.directory = tree_.path(),
             .environment = {{"LC_ALL", "C.UTF-8"}, {"XDG_CACHE_HOME", home_.path()}}});
    }
    std::string status() const { return run({"--cache-status"}).out; }
    void addManyFiles(int count) const {
        for (int i = 0; i < count; ++i)
            writeWholeFile(tree_ / ("d/sub/" + std::string(200, 'n') + std::to_string(i)), "");
    }
    /// The cache's directory, once there is one.
    std::filesystem::path cacheDirectory() const {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(home_.path()))
            if (entry.path().filename() == "CACHEDIR.TAG") return entry.path().parent_path();
        return {};
    }

    fscanner::TemporaryDirectory tree_;
    fscanner::TemporaryDirectory home_;
};

/// Trees built in the second that goes on are never too old.
void waitForNextSecond() {
    const std::time_t now = std::time(nullptr);
    while (std::time(nullptr) == now) std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

TEST_F(CacheTest, TheSecondSearchIsAnsweredFromTheCacheWhileItIsYoung) {
    EXPECT_THAT(found({"d"}), ElementsAre("d/a", "d/sub/b"));
    writeWholeFile(tree_ / "d/later", "");
    EXPECT_THAT(found({"d"}), ElementsAre("d/a", "d/sub/b"));
    EXPECT_THAT(found({"d", "--no-cache"}), ElementsAre("d/a", "d/later", "d/sub/b"));
    EXPECT_THAT(found({"d", "--no-recurse"}), ElementsAre("d/a", "d/later"));
    waitForNextSecond();
    EXPECT_THAT(found({"d", "--max-age", "1d"}), ElementsAre("d/a", "d/sub/b"));
    EXPECT_THAT(found({"d", "--fresh"}), ElementsAre("d/a", "d/later", "d/sub/b"));
    std::filesystem::remove(tree_ / "d/later");
    waitForNextSecond();
    EXPECT_THAT(run({"d", "-l", "-n", "later"}).out, testing::MatchesRegex("-rw.* 0 - +d/later\n"));
    EXPECT_THAT(found({"d", "--max-age", "0s"}), ElementsAre("d/a", "d/sub/b"));
}

TEST_F(CacheTest, StatisticsTellWhereTheAnswerIsFrom) {
    const RunResult first = run({"d", "--stats"});
    EXPECT_THAT(first.err, HasSubstr("matches:  2\nwalked:   2 files, 2 directories\n"));
    EXPECT_THAT(first.err, HasSubstr("from:     a scan\n"));
    const RunResult second = run({"d", "--stats"});
    EXPECT_THAT(second.err, HasSubstr("matches:  2\nwalked:   0 files, 0 directories\n"));
    EXPECT_THAT(second.err, HasSubstr("from:     the cache ("));
    EXPECT_EQ(first.out, second.out);
}

TEST_F(CacheTest, ExplainsWithoutSearching) {
    const std::string path = "path:      " + std::filesystem::canonical(tree_ / "d").string();
    const RunResult before = run({"d", "--explain", "-n", "a"});
    EXPECT_EQ(before.status, 0);
    EXPECT_THAT(before.out, HasSubstr(path + "\n"));
    EXPECT_THAT(before.out, HasSubstr("scanned into the cache, which does not have it\n"));
    EXPECT_THAT(before.out, HasSubstr("index:     FILENAME = a\n"));
    EXPECT_TRUE(std::filesystem::is_empty(home_.path()));

    found({"d"});
    const RunResult young = run({"d", "--explain", "-x", "d/sub", "-n", "*a"});
    EXPECT_THAT(young.out, HasSubstr("answer:    from the cache, "));
    EXPECT_THAT(young.out, HasSubstr("/d/sub\n"));
    EXPECT_THAT(young.out, HasSubstr("index:     none: "));
    waitForNextSecond();
    EXPECT_THAT(run({"d", "--explain", "--fresh"}).out, HasSubstr("0 s at most\n"));
    EXPECT_THAT(run({"d", "--explain", "--no-cache"}).out,
                HasSubstr("answer:    scanned: without the cache\n"));
    EXPECT_THAT(status(), HasSubstr("state:      good\n"));
}

TEST_F(CacheTest, StatusCompactingAndClearing) {
    for (const char* task : {"--cache-status", "--cache-compact", "--cache-clear"}) {
        const RunResult none = run({task});
        EXPECT_EQ(none.status, 1) << task;
        EXPECT_THAT(none.out, HasSubstr("no cache\n"));
    }
    found({"d"});
    EXPECT_THAT(status(), testing::ContainsRegex("  [0-9]+ s +2 +2  /.*/d\n"));
    EXPECT_EQ(run({"--cache-compact"}).status, 0);
    EXPECT_THAT(found({"d"}), ElementsAre("d/a", "d/sub/b"));

    const std::filesystem::path directory = cacheDirectory();
    for (const char* name : {"mine", "files.dat", "files.mine.dat"})
        writeWholeFile(directory / name, "");
    writeWholeFile(tree_ / "d/later", "");
    EXPECT_EQ(run({"--cache-clear"}).status, 0);
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        left.push_back(entry.path().filename());
    EXPECT_THAT(left, testing::UnorderedElementsAre("mine", "files.dat", "files.mine.dat"));
    EXPECT_THAT(found({"d"}), ElementsAre("d/a", "d/later", "d/sub/b"));
}

TEST_F(CacheTest, AMarkedCacheIsMadeAnew) {
    found({"d"});
    std::string mark;
    for (const auto& entry : std::filesystem::directory_iterator(cacheDirectory()))
        if (entry.path().extension() == ".counter")
            mark = std::filesystem::path(entry.path()).replace_extension(".cuflag");
    writeWholeFile(mark, "");
    EXPECT_THAT(status(), HasSubstr("state:      its last use was interrupted"));
    EXPECT_EQ(run({"--cache-compact"}).status, 4);
    writeWholeFile(tree_ / "d/later", "");
    EXPECT_THAT(found({"d"}), ElementsAre("d/a", "d/later", "d/sub/b"));
    EXPECT_THAT(status(), HasSubstr("state:      good"));
}

TEST_F(CacheTest, FailuresHaveTheirStatuses) {
    const RunResult bad = run({"d", "--cache-dir", "d/a"});
    EXPECT_EQ(bad.status, 4);
    EXPECT_THAT(bad.err, HasSubstr("/d/a: the cache directory cannot be used\n"));
    const RunResult fallback = shell("XDG_CACHE_HOME=$PWD/d/a exec \"$0\" d");
    EXPECT_EQ(fallback.status, 0);
    EXPECT_EQ(records(fallback.err).size(), 1u);
    EXPECT_THAT(fallback.err, HasSubstr("searching without one\n"));
    EXPECT_THAT(records(fallback.out), ElementsAre("d/a", "d/sub/b"));

    const Arguments wrong[] = {{"--max-age", "5w"},
                               {"--max-age", ""},
                               {"--max-age", "-1"},
                               {"--timeout", "0"},
                               {"--timeout", "s"},
                               {"--fresh", "--max-age", "3"},
                               {"--cache-status", "--cache-clear"}};
    for (const Arguments& arguments : wrong) EXPECT_EQ(run(arguments).status, 2) << arguments[0];
}

TEST_F(CacheTest, WhoeverHoldsTheCacheIsWaitedForOnlySoLong) {
    found({"d"});
    const std::wstring directory = cacheDirectory().wstring();
    fscanner::FS_Cache other(L"directories.x", L"files.x", directory.c_str(), false, false, true);
    ASSERT_EQ(other.lock(1000), 0);
    const RunResult result = run({"--cache-status"});
    other.unlock();
    EXPECT_EQ(result.status, 4);
    EXPECT_THAT(result.err, HasSubstr("another process is using the cache\n"));
}

/// A terminal says what goes on, and a signal does not wait.
TEST_F(CacheTest, AWaitForTheCacheIsSeenAndCanBeEnded) {
    found({"d"});
    const std::wstring directory = cacheDirectory().wstring();
    fscanner::FS_Cache other(L"directories.x", L"files.x", directory.c_str(), false, false, true);
    ASSERT_EQ(other.lock(1000), 0);
    for (const char* task : {"-c", "--cache-status"}) {
        const RunResult ended =
            runProgram("timeout", {"-s", "INT", "1", FSCAN_PROGRAM, "d", task},
                       {.directory = tree_.path(),
                        .environment = {{"XDG_CACHE_HOME", home_.path()}, {"TERM", "xterm"}},
                        .watched = true});
        EXPECT_EQ(ended.status, 124) << task;
        EXPECT_THAT(ended.err, HasSubstr("waiting for the cache: another process uses it, 0."));
        EXPECT_THAT(ended.err, testing::Not(HasSubstr(", 2."))) << task;
    }
    other.unlock();
    EXPECT_THAT(status(), HasSubstr("state:      good"));
}

TEST_F(CacheTest, ALostReaderDoesNotCostTheCache) {
    addManyFiles(2000);
    EXPECT_EQ(found({"d"}).size(), 2002u);
    const RunResult head = shell("{ \"$0\" d; echo $? >&2; } | head -n 1");
    EXPECT_EQ(head.err, std::to_string(128 + SIGPIPE) + "\n");
    EXPECT_THAT(status(), HasSubstr("state:      good"));
    // The reader is slow: the signal comes while standard output is full.
    const RunResult slow =
        shell("{ timeout -s INT 0.5 \"$0\" d; echo $? >&2; } | { sleep 1; cat > /dev/null; }");
    EXPECT_EQ(slow.err, "124\n");
    EXPECT_THAT(status(), HasSubstr("state:      good"));
}

TEST_F(CacheTest, AnInterruptedScanLeavesNoWrongAnswers) {
    addManyFiles(5000);
    for (const char* delay : {"0.02", "0.05", "0.1", "0.2"}) {
        const RunResult ended =
            shell(std::string("timeout -s INT ") + delay + " \"$0\" --fresh d > /dev/null");
        EXPECT_THAT(ended.status, testing::AnyOf(0, 124)) << ended.err;
        EXPECT_EQ(ended.err, "");
        EXPECT_EQ(found({"d"}).size(), 5002u) << delay;
        waitForNextSecond();
    }
}

}  // namespace

}  // namespace fscan::test
