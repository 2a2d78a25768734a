// Where fscan looks, and how it writes what it finds there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "program_run.h"
#include "support/temporary_directory.h"

namespace fscan::test {

namespace {

using fscanner::writeWholeFile;
using testing::ElementsAre;

class PathsTest : public testing::Test {
protected:
    PathsTest() {
        std::filesystem::create_directories(tree_ / "top/sub/deep");
        std::filesystem::create_directories(tree_ / "top/other");
        std::filesystem::create_directory_symlink("top/sub", tree_ / "link");
        for (const char* file :
             {"top/a", "top/sub/b", "top/sub/deep/c.o", "top/other/d", "top/other/e.o"})
            writeWholeFile(tree_ / file, "");
    }

    std::vector<std::string> found(const Arguments& arguments,
                                   const std::string& directory = "") const {
        return records(fscan(arguments, {.directory = tree_ / directory}).out);
    }

    fscanner::TemporaryDirectory tree_;
};

TEST_F(PathsTest, ResultsBeginWithTheGivenText) {
    EXPECT_THAT(found({}, "top/sub"), ElementsAre("./b", "./deep/c.o"));
    EXPECT_THAT(found({"."}, "top/sub"), ElementsAre("./b", "./deep/c.o"));
    EXPECT_THAT(found({"top/sub"}), ElementsAre("top/sub/b", "top/sub/deep/c.o"));
    EXPECT_THAT(found({"top/sub/"}), ElementsAre("top/sub/b", "top/sub/deep/c.o"));
    EXPECT_THAT(found({"../sub/../sub"}, "top/sub"),
                ElementsAre("../sub/../sub/b", "../sub/../sub/deep/c.o"));
    EXPECT_THAT(found({"link"}), ElementsAre("link/b", "link/deep/c.o"));
    EXPECT_THAT(found({tree_ / "link/deep"}), ElementsAre(tree_ / "link/deep/c.o"));
}

TEST_F(PathsTest, TheRootGivesAbsolutePaths) {
    // Only the top of it, so that the rest of the machine does not matter.
    const RunResult ours = fscan({"--no-recurse", "/"});
    const RunResult theirs = runProgram("find", {"/", "-maxdepth", "1", "!", "-type", "d"});
    EXPECT_EQ(records(ours.out), records(theirs.out));
}

TEST_F(PathsTest, NestedAndRepeatedPathsReportEachFileOnce) {
    EXPECT_THAT(
        found({"top", "top/sub", "link", "./top/../top"}),
        ElementsAre("top/a", "top/other/d", "top/other/e.o", "top/sub/b", "top/sub/deep/c.o"));
    EXPECT_THAT(found({"--no-recurse", "top", "top/sub"}), ElementsAre("top/a", "top/sub/b"));
}

TEST_F(PathsTest, ExcludesTakePathsWildcardsLinksAndFiles) {
    const std::vector<std::pair<Arguments, std::vector<std::string>>> table = {
        {{"top", "-x", "top/sub"}, {"top/a", "top/other/d", "top/other/e.o"}},
        {{"top", "-x", "top/sub/"}, {"top/a", "top/other/d", "top/other/e.o"}},
        {{"top", "-x", tree_ / "top/sub"}, {"top/a", "top/other/d", "top/other/e.o"}},
        {{"top", "-x", "link"}, {"top/a", "top/other/d", "top/other/e.o"}},
        {{"top", "-x", "top/other/../sub"}, {"top/a", "top/other/d", "top/other/e.o"}},
        {{"link", "-x", "top/sub/deep"}, {"link/b"}},
        {{"top", "-x", "*/deep", "-x", "top/oth*"}, {"top/a", "top/sub/b"}},
        {{"top", "-x", "top/a", "-x", "top/*.o"}, {"top/other/d", "top/sub/b"}},
        {{"top", "-i", "-x", "TOP/S?B"}, {"top/a", "top/other/d", "top/other/e.o"}},
        {{"top", "-x", "."}, {}},
        {{"top", "-x", "top/su", "-x", "missing/x", "-n", "b"}, {"top/sub/b"}},
    };
    for (const auto& [arguments, expected] : table) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        EXPECT_EQ(found(arguments), expected);
    }
    EXPECT_THAT(found({"-x", "link"}), testing::Not(testing::Contains("./link")));
}

TEST_F(PathsTest, OptionsStandAnywhereAndPathsMayFollowDashes) {
    std::filesystem::create_directory(tree_ / "-d");
    writeWholeFile(tree_ / "-d/f", "");
    EXPECT_THAT(found({"top", "-n", "b", "link", "-n", "a"}), ElementsAre("link/b", "top/a"));
    EXPECT_THAT(found({"-nb", "--name=a", "top"}), ElementsAre("top/a", "top/sub/b"));
    EXPECT_THAT(found({"-n", "f", "--", "-d"}), ElementsAre("-d/f"));
    EXPECT_EQ(fscan({"top", "++"}).status, 2);
}

TEST_F(PathsTest, NothingIsRelativeToADirectoryThatIsGone) {
    for (const auto& [arguments, status, out] :
         {std::tuple{"--relative", 2, std::string()},
          std::tuple{"--absolute", 0, tree_ / "top/other/d" + "\n"}}) {
        const RunResult result = runProgram(
            "sh",
            {"-c", "mkdir gone; cd gone; rmdir ../gone; exec \"$0\" --no-cache -n d $1 $2",
             FSCAN_PROGRAM, arguments, tree_ / "top"},
            {.directory = tree_.path()});
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out, out);
    }
}

TEST_F(PathsTest, FileSystemsAndDrivesNarrowTheSearch) {
    const std::string proc = "/proc/self/task";
    if (!std::filesystem::exists(proc)) GTEST_SKIP() << "no proc file system";
    const auto drives = records(fscan({"--drives"}).out);
    EXPECT_THAT(drives, testing::Contains(testing::ContainsRegex("^/proc +local +proc$")));

    // A PATH on a pseudo file system is wanted; one below a PATH is not.
    EXPECT_EQ(fscan({"-n", "uptime", "--no-recurse", "/proc"}).out, "/proc/uptime\n");
    Arguments rootButProc = {"/", "-n", "uptime"};
    for (const auto& entry : std::filesystem::directory_iterator("/"))
        if (entry.path() != "/proc")
            rootButProc.insert(rootButProc.end(), {"-x", entry.path().string()});
    EXPECT_EQ(fscan(rootButProc).out, "");
    rootButProc.push_back("--all-fs");
    EXPECT_THAT(records(fscan(rootButProc).out), testing::Contains("/proc/uptime"));
    EXPECT_EQ(fscan({"-n", "uptime", "--no-recurse", "/proc", "--not-fs", "proc"}).status, 1);
    EXPECT_EQ(fscan({"-n", "uptime", "--no-recurse", "/proc", "--fs", "ext4"}).status, 1);
    EXPECT_EQ(fscan({"-n", "uptime", "--no-recurse", "/proc", "--fs", "proc"}).status, 0);
    EXPECT_EQ(fscan({"-n", "uptime", "--no-recurse", "/proc", "--local"}).status, 0);
    EXPECT_EQ(fscan({"-n", "uptime", "--no-recurse", "/proc", "--remote"}).status, 1);
}

}  // namespace

}  // namespace fscan::test
