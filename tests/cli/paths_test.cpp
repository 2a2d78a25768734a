// Where fscan looks, and how it writes the paths of its matches.

#include "program_run.h"
#include "support/private_mounts.h"

namespace fscan::test {
namespace {

using testing::ElementsAre;

class PathsTest : public FscanTest {
protected:
    PathsTest() {
        for (const char* file :
             {"top/a", "top/sub/b", "top/sub/deep/c.o", "top/other/d", "top/other/e.o"})
            add(file);
        std::filesystem::create_directory_symlink("top/sub", tree_ / "link");
    }
    Arguments foundFrom(const std::string& directory, const Arguments& arguments) const {
        return records(fscan(arguments, {.directory = tree_ / directory}).out);
    }
};

TEST_F(PathsTest, ResultsBeginWithTheGivenText) {
    EXPECT_THAT(foundFrom("top/sub", {}), ElementsAre("./b", "./deep/c.o"));
    EXPECT_THAT(foundFrom("top/sub", {"../sub/../sub"}),
                ElementsAre("../sub/../sub/b", "../sub/../sub/deep/c.o"));
    EXPECT_THAT(found({"top/sub/"}), ElementsAre("top/sub/b", "top/sub/deep/c.o"));
    EXPECT_THAT(found({"link/"}), ElementsAre("link/b", "link/deep/c.o"));
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
        found({"top/", "top/sub", "link/", "./top/../top"}),
        ElementsAre("top/a", "top/other/d", "top/other/e.o", "top/sub/b", "top/sub/deep/c.o"));
    EXPECT_THAT(found({"--no-recurse", "top/", "top/sub"}), ElementsAre("top/a", "top/sub/b"));
}

TEST_F(PathsTest, ExcludesTakePathsWildcardsLinksAndFiles) {
    const std::vector<std::pair<Arguments, std::vector<std::string>>> table = {
        {{"top/", "-x", "link/"}, {"top/a", "top/other/d", "top/other/e.o"}},
        {{"link/", "-x", "top/sub/deep"}, {"link/b"}},
        {{"top/", "-x", "top/a", "-x", "top/*.o"}, {"top/other/d", "top/sub/b"}},
        {{"top/", "-i", "-x", "TOP/S?B"}, {"top/a", "top/other/d", "top/other/e.o"}},
        {{"top/", "-x", "."}, {}},
        {{"top/", "-x", "top/su", "-x", "missing/x", "-n", "b"}, {"top/sub/b"}},
    };
    for (const auto& [arguments, expected] : table)
        EXPECT_EQ(found(arguments), expected) << testing::PrintToString(arguments);
    EXPECT_THAT(found({"-x", "link/"}), testing::Not(testing::Contains("./link")));
}

class ExcludeTest : public FscanTest {
protected:
    ExcludeTest() {
        for (const char* file : {"a", "old/b", "skip/c", "in/skip/d", "in/skip/deep/e",
                                 "in/skipped", "in/old/skip/f.o", "in/s*p/g"})
            add(std::string("top/") + file);
    }
    RunSettings cached() const {
        return {.environment = {{"XDG_CACHE_HOME", home_.path()}}, .cached = true};
    }
    /// Asks the file systems, a new cache and an old one. All their output must agree.
    RunResult ask(const Arguments& arguments) const {
        const RunResult direct = run(arguments);
        for (const char* cache : {"new", "old"}) {
            const RunResult same = run(arguments, cached());
            EXPECT_EQ(records(same.out), records(direct.out)) << cache;
            EXPECT_EQ(same.err, direct.err) << cache;
            EXPECT_EQ(same.status, direct.status) << cache;
        }
        run({"--cache-clear"}, cached());
        return direct;
    }

    fscanner::TemporaryDirectory home_;
};

TEST_F(ExcludeTest, LeavesOutWhatPathWouldMatchAndAllBelow) {
    const std::string a = "top/a", b = "top/old/b", c = "top/skip/c", d = "top/in/skip/d",
                      e = "top/in/skip/deep/e", s = "top/in/skipped", f = "top/in/old/skip/f.o",
                      g = "top/in/s*p/g";
    const std::vector<std::pair<Arguments, std::vector<std::string>>> table = {
        {{"skip"}, {a, g, s, b}},
        {{"in/skip"}, {a, f, g, s, b, c}},
        {{"*/skip"}, {a, g, s, b}},
        {{"*skip"}, {a, g, s, b}},
        {{"./top/skip/"}, {a, f, g, d, e, s, b}},
        {{"./skip", "-q"}, {a, f, g, d, e, s, b, c}},
        {{tree_ / "top/in"}, {a, b, c}},
        {{"/*/old", "-x", "*.o"}, {a, g, d, e, s, c}},
        {{"*.o"}, {a, g, d, e, s, b, c}},
        {{"s?ip"}, {a, g, s, b}},
        // Wildcards in a PATH are plain characters. As a pattern this name would match others, too.
        {{"in/s*p"}, {a, f, s, b, c}},
        {{"SKIP", "-i"}, {a, g, s, b}},
        {{"*"}, {}},
    };
    for (auto [arguments, expected] : table) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        arguments.insert(arguments.begin(), {"top/", "-x"});
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(records(ask(arguments).out), expected);
    }
}

TEST_F(ExcludeTest, SaysWhichLeftNothingOut) {
    const auto note = [](const std::string& text) {
        return "fscan: note: --exclude " + text + " left nothing out\n";
    };
    EXPECT_EQ(ask({"top/", "-x", "skip", "-x", "*.o", "-x", "sk", "-x", "./skip"}).err,
              note("*.o") + note("sk") + note("./skip"));
    // It is met although no file of it matches, by whatever path the cache reaches it.
    for (const char* met : {"skip", "*/in/sk?p", "./top/in/skip", "in/*eep"})
        EXPECT_EQ(ask({"top/", "-n", "a", "-x", met}).err, "") << met;
    EXPECT_EQ(ask({"top/old", "-x", "skip", "-x", "b"}).err, note("skip"));
    EXPECT_EQ(ask({"top/", "-x", "top/", "-x", "no"}).err,
              "fscan: note: top/: left out by --exclude\n" + note("no"));
    // Nobody asked for it, or it is unknown.
    for (const Arguments& silent : {Arguments{"-q"}, {"--no-recurse"}, {"--limit", "1"}}) {
        Arguments arguments = {"top/", "-x", "no"};
        arguments.insert(arguments.end(), silent.begin(), silent.end());
        EXPECT_EQ(run(arguments).err, "") << silent.front();
    }
}

TEST_F(ExcludeTest, WhatCannotBeAPathIsRefused) {
    const std::string gone =
        "mkdir gone; cd gone; rmdir ../gone; exec \"$0\" --no-cache " + (tree_ / "top") + " -n a ";
    for (const char* option : {"-x ./a", "-x ..", "--path ./a", "--relative ."}) {
        const RunResult result = shell(gone + option);
        EXPECT_EQ(result.status, 2) << option;
        EXPECT_EQ(result.out, "") << option;
    }
    EXPECT_THAT(shell(gone + "-x ./a").err, testing::HasSubstr("the current directory is gone"));
    for (const char* option : {"-x skip", "--absolute"})
        EXPECT_EQ(shell(gone + option).out, tree_ / "top/a" + "\n") << "it needs no directory";
    EXPECT_EQ(run({"top/", "-x", ""}).err, "fscan: --exclude: it is empty\n");
    EXPECT_THAT(run({"top/", "-x", "in", "-x", "old", "--stats"}).err,
                testing::HasSubstr("walked:   2 files, 2 directories\n"))
        << "what is left out is not walked";
}

TEST_F(PathsTest, OptionsStandAnywhereAndPathsMayFollowDashes) {
    add("-d/f");
    EXPECT_THAT(found({"top/", "-n", "b", "link/", "-n", "a"}), ElementsAre("link/b", "top/a"));
    EXPECT_THAT(found({"-nb", "--name=a", "top/"}), ElementsAre("top/a", "top/sub/b"));
    EXPECT_THAT(found({"-n", "f", "--", "-d"}), ElementsAre("-d/f"));
}

// Only options that the arguments name are looked at, and all of them where they are wrong.
TEST_F(PathsTest, OptionsAreKnownHoweverTheyAreNamed) {
    EXPECT_THAT(found({"-in", "B", "top/"}), ElementsAre("top/sub/b"));
    EXPECT_THAT(found({"-i-name", "B", "top/"}), ElementsAre("top/sub/b"));
    EXPECT_THAT(found({"--not", "-nb", "-r", "^[ab]$", "top/"}), ElementsAre("top/a"));
    EXPECT_EQ(run({"-n", "-c", "top/"}).status, 1) << "-c is the value of -n";
    EXPECT_EQ(run({"-n", "a", "--reverse"}).err,
              "fscan: --reverse requires --sort; see fscan --help\n");
    EXPECT_EQ(run({"--fresh", "--max-age=1d", "-n", "a"}).err,
              "fscan: --max-age excludes --fresh; see fscan --help\n");
}

TEST_F(PathsTest, FileSystemsAndDrivesNarrowTheSearch) {
    const std::string proc = "/proc/self/task";
    if (!std::filesystem::exists(proc)) GTEST_SKIP() << "no proc file system";
    const auto drives = records(fscan({"--drives"}).out);
    EXPECT_THAT(drives, testing::Contains(testing::ContainsRegex("^/proc +local +proc$")));

    // A PATH on a pseudo file system is searched; one below a PATH is not.
    EXPECT_EQ(fscan({"-n", "uptime", "--no-recurse", "/proc"}).out, "/proc/uptime\n");
    Arguments rootButProc = {"/", "-n", "uptime"};
    for (const auto& entry : std::filesystem::directory_iterator("/"))
        if (entry.path() != "/proc")
            rootButProc.insert(rootButProc.end(), {"-x", entry.path().string()});
    EXPECT_EQ(fscan(rootButProc).out, "");
    rootButProc.push_back("--all-fs");
    EXPECT_THAT(records(fscan(rootButProc).out), testing::Contains("/proc/uptime"));
    for (const auto& [options, status] : {std::pair{Arguments{"--not-fs", "proc"}, 1},
                                          {{"--fs", "ext4"}, 1},
                                          {{"--fs", "proc"}, 0},
                                          {{"--local"}, 0},
                                          {{"--remote"}, 1}}) {
        Arguments uptime = {"-n", "uptime", "--no-recurse", "/proc"};
        uptime.insert(uptime.end(), options.begin(), options.end());
        EXPECT_EQ(run(uptime).status, status) << testing::PrintToString(options);
    }
}

TEST_F(PathsTest, DriveGroupsChooseAmongTheDrivesOfAPath) {
    const std::string at = tree_ / "top/sub/deep";
    for (const Arguments& found : {Arguments{"$all::" + at}, {"--remote", "$local::" + at}})
        EXPECT_EQ(run(found).out, at + "/c.o\n") << found[0];
    EXPECT_EQ(run({"$remote::" + at}).out, "");
    EXPECT_EQ(run({"--no-recurse", "$local::"}).out, run({"--no-recurse", "/"}).out);
}

TEST_F(PathsTest, NestedPathsKeepTheirDriveGroups) {
    add("o/l");
    add("o/s/l");
    fscanner::withPrivateMounts([&] {
        if (!fscanner::mountMemory("server:/export", tree_ / "o/s/far"))
            return fscanner::kNotAllowed;
        add("o/s/far/r");
        const std::string l = "o/l", sl = "o/s/l", r = "o/s/far/r";
        const std::pair<Arguments, Arguments> cases[] = {
            {{"o/", "o/s"}, {l, r, sl}},
            {{"o/", "$remote::o/s"}, {l, r, sl}},
            {{"o/", "$remote::o/s", "$local::o/s"}, {l, r, sl}},
            {{"o/", "$other::o/s"}, {l, r, sl}},
            {{"$local::o", "$remote::o/s"}, {l, r, sl}},
            {{"$remote::o", "$local::o/s"}, {r, sl}},
            {{"$remote::o", "o/s"}, {r, sl}},
            {{"$local::o", "$other::o"}, {l, sl}},
            {{"$remote::o", "$other::o"}, {r}},
        };
        for (const auto& [paths, expected] : cases)
            EXPECT_EQ(found(paths), expected) << testing::PrintToString(paths);
        return HasFailure() ? 1 : 0;
    });
}

}  // namespace
}  // namespace fscan::test
