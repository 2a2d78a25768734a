// Exit statuses, messages, and what happens when the output or a directory fails.

#include <sys/stat.h>

#include "build_paths.h"
#include "program_run.h"

namespace fscan::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class StatusTest : public FscanTest {
protected:
    StatusTest() {
        add("d/f");
        add("d/locked/g");
    }
    /// More paths than fit in a pipe and the program's buffer.
    void addManyFiles() const {
        for (int i = 0; i < 1000; ++i) add(std::string(200, 'n') + std::to_string(i));
    }
};

TEST_F(StatusTest, FoundAndNothingFound) {
    EXPECT_EQ(run({"-n", "f", "--debug-log", "log"}).status, 0);
    EXPECT_THAT(fscanner::readWholeFile(tree_ / "log"),
                HasSubstr("PathHelper::pathResolver - entering"));
    for (const auto& [option, out] : {std::pair("-0", ""), {"-c", "0\n"}}) {
        const RunResult nothing = run({option, "-n", "nowhere"});
        EXPECT_EQ(nothing.status, 1);
        EXPECT_EQ(nothing.out + nothing.err, out);
    }
}

TEST_F(StatusTest, WhatIsWrongIsNamedBeforeAnythingIsSearched) {
    const std::vector<std::pair<Arguments, std::string>> table = {
        {{"d/", "--colour"}, "unknown option --colour; did you mean --color? See fscan --help\n"},
        {{"-q", "-k"}, "unknown option -k; see fscan --help\n"},
        {{"-local"}, "unknown option -local; did you mean --local? See fscan --help\n"},
        {{"-n"}, "--name: 1 required GLOB missing; see fscan --help\n"},
        {{"--local", "--remote"}, "--remote: not with the others of its kind"},
        {{"$locale::/"}, "$locale::/; did you mean $local::?: No such file or directory\n"},
        {{"$here::/"}, "$here::/: No such file or directory\n"},
        {{""}, ": No such file or directory\n"},
        {{"./missing", "d/f"},
         "./missing: No such file or directory\nfscan: d/f: Not a directory\n"},
        {{"d/", "--debug-log", "missing/log"}, "missing/log: the debug log cannot be written\n"},
        {{"--larger", "10x"}, "not a size"},
        {{"--larger", "9999999T"}, "not a size"},
        {{"--perm", "u+w,"}, "not permissions"},
        {{"--newer", "yesterday"}, "not a duration"},
        {{"--older", "2026-02-30"}, "not a duration"},
        {{"--owner", "nobody-of-that-name"}, "no user"},
        {{"-t", "a\"b"}, "not a word"},
        {{"-t", "y"}, "no kind is called that"},
        {{"--max-depth", "0"}, "not a number"},
        {{"--size", "2k..1k"}, "not a size or range"},
        {{"--size", ".."}, "not a size or range"},
        {{"--size", "1.5"}, "not a size or range"},
        {{"--perm", "a+s"}, "not permissions"},
        {{"--perm", "8"}, "not permissions"},
        {{"--group", "nobody-of-that-name"}, "no group"},
        {{"--not"}, "needs a condition"},
        {{"--not", "d/"}, "a PATH is no condition"},
        {{"--not", "-e", "rm", ";"}, "--not -e: no condition"},
        {{"--not", "--sort"}, "no condition"},
        {{"--not", "--larger"}, "required"},
        {{"--sort", "size,age"}, "not one of"},
        {{"-r", "a("}, "missing"},
        {{"-n", std::string(60000, '{') + std::string(60000, '}')}, "too many braces"},
        {{"-r", "(a{1000}){1000}"}, "invalid repetition"},
        {{"--limit", "0"}, "not a number"},
        {{"--timeout", "0"}, "not a duration"},
        {{"--threads", "0"}, "not a number from 1 to 256"},
        {{"--threads", "two"}, "not a number from 1 to 256"},
        {{"--fresh", "--max-age", "3"}, "--max-age excludes --fresh"},
        {{"--color", "sometimes"}, "not one of always, auto, never"},
        {{"--sort", "age"}, "not one of modified, name, path, pathname, size"},
        {{"--spill"}, "--spill requires --sort"},
        {{"--no-cache", "--provider", "provider_direct"}, "--provider excludes --no-cache"},
        {{"--json", "-c"}, "only one of"},
        {{"--csv", "-0"}, "--null is for paths"},
        {{"--format", "{pth}"}, "no field {pth}; did you mean path?"},
        {{"--format", "{path"}, "no '}'"},
        {{"-e", "true"}, "needs ';'"},
        {{"--exec-batch", "+"}, "needs a command"},
        {{"--exec-batch", "echo", "{}x", "+"}, "a word of its own"},
        {{"-e", "true", ";", "-e", "false", ";"}, "only one command"},
        {{"-t", "f,y"}, "no kind is called that"},
        {{"--summary-file", "nowhere/s"}, "nowhere/s: No such file or directory\n"},
        {{"-w", "[NAME] == \"x\""}, "did you mean [FILENAME]?"},
        {{"-w", "tpye(\"a\", \"b\")"}, "did you mean type(?"},
        {{"-w", "1) || (1"}, "criteria: "},
        {{"-w", "  "}, "criteria: "},
        {{"-w", "\"text\""}, "criteria: "},
        {{"-w", "[SIZE] > 1", "-w", "&&"}, "criteria: "},
        {{"-w", "[SIZE] == \"text\""}, "criteria: "},
        {{"-w", "[SIZE] > 99999999999999999999"}, "a number is 9223372036854775807 at most"},
    };
    for (const auto& [arguments, message] : table) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const RunResult result = run(arguments, {.cached = true});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, testing::StartsWith("fscan: "));
        EXPECT_THAT(result.err, HasSubstr(message));
    }
}

TEST_F(StatusTest, AWrongPathDoesNotKeepTheOthersFromBeingSearched) {
    for (const char* wrong : {"missing/", "d/f", "$lokal::/"}) {
        const RunResult result = run({wrong, "d/", "--summary", "json"});
        EXPECT_EQ(result.status, 3) << wrong;
        EXPECT_EQ(records(result.out).size(), 2U) << wrong;
        EXPECT_THAT(result.err, HasSubstr("fscan: " + std::string(wrong)));
        EXPECT_THAT(result.err, HasSubstr("\"complete\":false"));
    }
    const RunResult elsewhere = run({"$remote::" + (tree_ / "d"), "d/locked"});
    EXPECT_EQ(elsewhere.out, "d/locked/g\n");
    EXPECT_EQ(elsewhere.err, "fscan: note: " + (tree_ / "d") + ": on no drive that is searched\n");
    // A PATH that is searched for each group separately is on a drive of one of them.
    const std::string group = "$remote::" + (tree_ / "d");
    EXPECT_EQ(run({".", group}).err, elsewhere.err);
    EXPECT_EQ(elsewhere.status, 0);
}

TEST_F(StatusTest, WithoutTheFileProgramNoTypeIsClaimed) {
    add("none");
    const auto without = [this](const std::string& arguments) {
        return shell(
            "exec unshare -m sh -c 'mount --bind none /usr/bin/file || exit 77; "
            "exec \"$0\" d --summary json " +
                arguments + "' \"$0\"",
            {.cached = true});
    };
    if (without("-c").status != 0) GTEST_SKIP() << "nothing can be mounted here";
    const std::string criteria = "-w \"type(path([PATHID], [FILENAME]), \\\"PNG\\\") == 0\"";
    for (const std::string& asks : {std::string("-t empty"), criteria}) {
        for (const char* way : {" --no-cache", " --fresh", ""}) {
            const RunResult result = without(asks + way);
            EXPECT_EQ(result.status, 4) << asks << way;
            EXPECT_EQ(result.out, "") << asks << way;
            EXPECT_THAT(result.err, HasSubstr("fscan: types cannot be told: there is no program "
                                              "/usr/bin/file that can be run\n"));
            EXPECT_THAT(result.err, HasSubstr("\"complete\":false"));
        }
    }
    EXPECT_EQ(without("-n f").status, 0);
}

TEST_F(StatusTest, HelpAndVersionGoToStandardOutput) {
    const RunResult help = run({"d/", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("Examples:\n"));
    for (const std::string& line : records(help.out)) EXPECT_LT(line.size(), 80U) << line;
    // Ten options come first, then the groups of the others.
    EXPECT_THAT(help.out, HasSubstr("PATH.\n\nMost used:\n"));
    const std::size_t first = help.out.find("Most used:\n");
    const std::string most = help.out.substr(first, help.out.find("\n\n", first) - first);
    int count = 0;
    for (const std::string& line : records(most)) count += line.starts_with("  -") ? 1 : 0;
    EXPECT_EQ(count, 10);
    EXPECT_THAT(run({"--version"}).out, testing::MatchesRegex("fscan [0-9]+[.][0-9]+[.].*\n"));
}

TEST_F(StatusTest, UnreadableDirectoriesAreReported) {
    if (!canDropOverride()) GTEST_SKIP() << "permissions cannot be made to hold";
    const RunSettings user = {.withoutOverride = true};
    chmod((tree_ / "d/locked").c_str(), 0);
    const RunResult below = run({"d/"}, user);
    // The scan that fills the cache and the answer from the cache report the same as a direct scan.
    for (const char* cache : {"new", "old"})
        EXPECT_EQ(run({"d/"}, {.withoutOverride = true, .cached = true}).err, below.err) << cache;
    const RunResult named = run({"d/", "--errors"}, user);
    const RunResult strict = run({"d/", "--strict", "-q"}, user);
    const RunResult silent = run({"d/", "-x", "d/locked"}, user);
    const RunResult given = run({"d/locked/", "d/"}, user);
    chmod((tree_ / "d").c_str(), 0);
    const RunResult behind = run({".", "d/locked"}, user);
    chmod((tree_ / "d").c_str(), 0700);
    chmod((tree_ / "d/locked").c_str(), 0700);

    EXPECT_EQ(below.out, "d/f\n");
    EXPECT_EQ(below.err, "fscan: 1 directory could not be read; --errors names it\n");
    EXPECT_EQ(below.status, 0);
    EXPECT_EQ(named.err, "fscan: d/locked: Permission denied\n");
    EXPECT_EQ(strict.out + strict.err, "d/f\n");
    EXPECT_EQ(strict.status, 3);
    EXPECT_EQ(silent.err, "");
    EXPECT_EQ(given.out, "d/f\n");
    EXPECT_EQ(given.err, "fscan: d/locked/: Permission denied\n");
    EXPECT_EQ(given.status, 3);
    EXPECT_THAT(behind.err, HasSubstr("fscan: d/locked: Permission denied\n"));
    EXPECT_THAT(behind.err, HasSubstr("fscan: 1 directory could not be read"));
    EXPECT_EQ(behind.status, 3);
}

/// A directory that can be read but not entered does not spoil the types of other files.
TEST_F(StatusTest, TypesAreToldBesideADirectoryThatCannotBeEntered) {
    if (!canDropOverride()) GTEST_SKIP() << "permissions cannot be made to hold";
    for (const char* name : {"d/1/a", "d/2/a", "d/3/a"}) add(name, "text\n");
    const std::string shut = tree_ / "d/2";
    chmod(shut.c_str(), 0444);
    for (const char* way : {"--no-cache", "--fresh", "--max-age=1h"}) {
        const RunResult result =
            run({"d/", "-t", "ASCII", "-n", "a", way}, {.withoutOverride = true, .cached = true});
        EXPECT_THAT(records(result.out), testing::UnorderedElementsAre("d/1/a", "d/3/a")) << way;
        EXPECT_THAT(result.err, HasSubstr("the criteria could not be decided for 1 file\n")) << way;
        EXPECT_EQ(result.status, 0) << way;
    }
    chmod(shut.c_str(), 0700);
}

/// Failures of the system have nothing to do with permissions.
TEST_F(StatusTest, FailuresOfTheSystemAreNotAnAnswer) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer itself needs descriptors";
#endif
    add("d/e/e/e/f");
    // Below the first limit the program does not start. Above the last all is found.
    std::vector<RunResult> ends;
    for (const int descriptors : {4, 5, 64})
        ends.push_back(
            shell("ulimit -n " + std::to_string(descriptors) + "; exec \"$0\" --no-cache -c"));
    for (const RunResult& end : ends) {
        EXPECT_EQ(end.status, end.out == "3\n" ? 0 : 3) << end.out;
        EXPECT_EQ(end.err.empty(), end.status == 0) << end.err;
    }
    EXPECT_EQ(ends.front().status, 3);
    EXPECT_EQ(ends.back().status, 0);
}

TEST_F(StatusTest, FailedOutputIsAnErrorAndALostReaderIsNone) {
    addManyFiles();
    for (const Stdout to : {Stdout::full, Stdout::closed}) {
        const RunResult result = run({}, {.to = to});
        EXPECT_EQ(result.status, 4);
        EXPECT_THAT(result.err, testing::MatchesRegex("fscan: standard output: [^\n]*\n"));
        EXPECT_EQ(run({"--help"}, {.to = to}).status, 4);
    }
    const RunResult ignored = run({}, {.to = Stdout::readerGone});
    EXPECT_EQ(ignored.err, "");
    EXPECT_EQ(ignored.status, 0);
}

/// A pipe that another program shares, which is not waited for.
TEST_F(StatusTest, APipeThatDoesNotWaitLosesNothing) {
    addManyFiles();
    const RunResult result = runProgram(
        "python3", {"-c",
                    "import os, subprocess, sys, time\n"
                    "r, w = os.pipe()\n"
                    "os.set_blocking(w, False)\n"
                    "p = subprocess.Popen([sys.argv[1], '--no-cache', sys.argv[2]], stdout=w)\n"
                    "os.close(w); time.sleep(0.3)\n"
                    "print(len(open(r).readlines()), p.wait())",
                    FSCAN_PROGRAM, tree_.path().string()});
    EXPECT_EQ(result.out, "1002 0\n");
}

TEST_F(StatusTest, LongOutputShowsAttributesSizeAndTime) {
    chmod((tree_ / "d/f").c_str(), 0640);
    const std::string date = "touch -d '2001-02-03 04:05:06' d/f; exec \"$0\" -l -n f";
    EXPECT_EQ(shell(date).out, "-rw-r-----     0 2001-02-03 04:05 ./d/f\n");
    std::filesystem::create_symlink("f", tree_ / "d/l");
    EXPECT_THAT(run({"-l", "--bytes", "-n", "l"}).out,
                testing::StartsWith("lrwxrwxrwx            1 "));
    for (const auto& [size, text] : {std::pair{1023, " 1023 "},
                                     {10188, " 9.9K "},
                                     {10240, "  10K "},
                                     {1048063, "1023K "},
                                     {1048064, " 1.0M "}}) {
        std::filesystem::resize_file(tree_ / "d/f", static_cast<std::uintmax_t>(size));
        EXPECT_THAT(run({"-l", "-n", "f"}).out,
                    testing::StartsWith(std::string("-rw-r----- ") + text));
    }
}

TEST_F(StatusTest, ATerminalGetsNothingHarmful) {
    for (const char* name :
         {"new\nline", "\x1B[31m", "\xFF", "\xE2\x80\xAEtxt", "\xC2\x9B", "\xC3\xA9"})
        add(std::string("d/locked/") + name);
    const RunResult result = run({"d/locked", "--color", "never"}, {.to = Stdout::terminal});
    EXPECT_THAT(records(result.out),
                ElementsAre("d/locked/\\u009B\r", "d/locked/\\u202Etxt\r", "d/locked/\\x1B[31m\r",
                            "d/locked/\\xFF\r", "d/locked/g\r", "d/locked/new\\nline\r",
                            "d/locked/\xC3\xA9\r"));
}

}  // namespace
}  // namespace fscan::test
