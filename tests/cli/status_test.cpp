// Exit statuses, messages, and what happens when the output or a directory fails.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "program_run.h"
#include "support/temporary_directory.h"

namespace fscan::test {

namespace {

using fscanner::writeWholeFile;
using testing::ElementsAre;
using testing::HasSubstr;

class StatusTest : public testing::Test {
protected:
    StatusTest() {
        std::filesystem::create_directories(tree_ / "d/locked");
        writeWholeFile(tree_ / "d/f", "");
        writeWholeFile(tree_ / "d/locked/g", "");
    }
    RunResult search(Arguments arguments, RunSettings settings = {}) const {
        settings.directory = tree_.path();
        settings.environment["LC_ALL"] = "C.UTF-8";
        return fscan(arguments, settings);
    }
    /// More paths than a pipe and the program's buffer hold.
    void addManyFiles() const {
        for (int i = 0; i < 1000; ++i)
            writeWholeFile(tree_ / (std::string(200, 'n') + std::to_string(i)), "");
    }

    fscanner::TemporaryDirectory tree_;
};

TEST_F(StatusTest, FoundAndNothingFound) {
    EXPECT_EQ(search({"-n", "f"}).status, 0);
    const RunResult nothing = search({"-n", "nowhere"});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_EQ(nothing.out + nothing.err, "");
    const RunResult count = search({"-c", "-n", "nowhere"});
    EXPECT_EQ(count.status, 1);
    EXPECT_EQ(count.out, "0\n");
}

TEST_F(StatusTest, UsageErrorsNameWhatIsWrong) {
    const std::vector<std::pair<Arguments, std::string>> table = {
        {{"d", "--colour"},
         "fscan: unknown option --colour; did you mean --color? See fscan --help\n"},
        {{"--xyzzy"}, "fscan: unknown option --xyzzy; see fscan --help\n"},
        {{"-q", "-k"}, "fscan: unknown option -k; see fscan --help\n"},
        {{"$locale::/"}, "fscan: $locale::/; did you mean $local::?: No such file or directory\n"},
        {{"d", "missing/x"}, "fscan: missing/x: No such file or directory\n"},
        {{"*.h"}, "fscan: *.h: No such file or directory; a name to find goes with -n\n"},
        {{"-name", "f"}, "fscan: unknown option -name; did you mean --name? See fscan --help\n"},
        {{"d/f"}, "fscan: d/f: Not a directory\n"},
        {{""}, "fscan: : No such file or directory\n"},
        {{"./missing", "d/f"},
         "fscan: ./missing: No such file or directory\nfscan: d/f: Not a directory\n"},
        {{"d", "--debug-log", "missing/log"},
         "fscan: missing/log: the debug log cannot be written\n"},
    };
    for (const auto& [arguments, message] : table) {
        const RunResult result = search(arguments);
        EXPECT_EQ(result.err, message);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.status, 2);
    }
    for (const Arguments& arguments : {Arguments{"-n"}, Arguments{"--local", "--remote"}}) {
        const RunResult result = search(arguments);
        EXPECT_THAT(result.err, testing::MatchesRegex("fscan: .*-.*; see fscan --help\n"));
        EXPECT_EQ(result.status, 2);
    }
}

TEST_F(StatusTest, HelpAndVersionGoToStandardOutput) {
    const RunResult help = search({"d", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("Examples:\n"));
    for (const char* option : {"--name", "--where", "--exclude", "--no-recurse", "--ignore-case",
                               "--fs", "--not-fs", "--all-fs", "--local", "--remote", "--null",
                               "--long", "--count", "--drives", "--check", "--debug-log"})
        EXPECT_THAT(help.out, HasSubstr(option));
    for (const std::string& line : records(help.out)) EXPECT_LT(line.size(), 80U) << line;
    EXPECT_THAT(search({"--version"}).out, testing::MatchesRegex("fscan [0-9]+[.][0-9]+[.].*\n"));
}

TEST_F(StatusTest, UnreadableDirectoriesAreReported) {
    if (!canDropOverride()) GTEST_SKIP() << "permissions cannot be made to hold";
    const RunSettings user = {.withoutOverride = true};
    chmod((tree_ / "d/locked").c_str(), 0);
    const RunResult below = search({"d"}, user);
    const RunResult named = search({"d", "--errors"}, user);
    const RunResult strict = search({"d", "--strict", "-q"}, user);
    const RunResult silent = search({"d", "-x", "d/locked"}, user);
    const RunResult given = search({"d/locked/", "d"}, user);
    chmod((tree_ / "d").c_str(), 0);
    const RunResult behind = search({".", "d/locked"}, user);
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

TEST_F(StatusTest, FailedOutputIsAnErrorAndALostReaderIsNone) {
    addManyFiles();
    for (const Stdout to : {Stdout::full, Stdout::closed}) {
        const RunResult result = search({}, {.to = to});
        EXPECT_EQ(result.status, 4);
        EXPECT_THAT(result.err, testing::MatchesRegex("fscan: standard output: [^\n]*\n"));
        EXPECT_EQ(search({"--help"}, {.to = to}).status, 4);
    }
    const RunResult ignored = search({}, {.to = Stdout::readerGone});
    EXPECT_EQ(ignored.err, "");
    EXPECT_EQ(ignored.status, 0);
    const RunResult head = runProgram("sh", {"-c", "{ \"$1\" \"$2\"; echo $? >&2; } | head -n 1",
                                             "sh", FSCAN_PROGRAM, tree_.path().string()});
    EXPECT_EQ(records(head.out).size(), 1u);
    EXPECT_EQ(head.err, std::to_string(128 + SIGPIPE) + "\n");
}

/// A pipe that is not waited for, because another program shares it.
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
    writeWholeFile(tree_ / "d/f", "12345");
    chmod((tree_ / "d/f").c_str(), 0640);
    const RunResult file =
        runProgram("sh",
                   {"-c", "TZ=UTC touch -d '2001-02-03 04:05:06' d/f && TZ=UTC exec \"$0\" -l -n f",
                    FSCAN_PROGRAM},
                   {.directory = tree_.path()});
    EXPECT_EQ(file.out, "-rw-r-----     5 2001-02-03 04:05 ./d/f\n");
    std::filesystem::create_symlink("f", tree_ / "d/l");
    EXPECT_THAT(search({"-l", "--bytes", "-n", "l"}).out,
                testing::StartsWith("lrwxrwxrwx            1 "));
    for (const auto& [size, text] : {std::pair{1023, " 1023 "},
                                     {1024, " 1.0K "},
                                     {10188, " 9.9K "},
                                     {10240, "  10K "},
                                     {1048063, "1023K "},
                                     {1048064, " 1.0M "},
                                     {1 << 30, " 1.0G "}}) {
        std::filesystem::resize_file(tree_ / "d/f", static_cast<std::uintmax_t>(size));
        EXPECT_THAT(search({"-l", "-n", "f"}).out,
                    testing::StartsWith(std::string("-rw-r----- ") + text))
            << size;
    }
}

TEST_F(StatusTest, ATerminalGetsNothingHarmful) {
    for (const char* name :
         {"new\nline", "\x1B[31m", "\xFF", "\xE2\x80\xAEtxt", "\xC2\x9B", "\xC3\xA9"})
        writeWholeFile(tree_ / (std::string("d/locked/") + name), "");
    const RunResult result = search({"d/locked", "--color", "never"}, {.to = Stdout::terminal});
    EXPECT_THAT(records(result.out),
                ElementsAre("d/locked/\\u009B\r", "d/locked/\\u202Etxt\r", "d/locked/\\x1B[31m\r",
                            "d/locked/\\xFF\r", "d/locked/g\r", "d/locked/new\\nline\r",
                            "d/locked/\xC3\xA9\r"));
}

TEST_F(StatusTest, TheDebugLogIsWritten) {
    EXPECT_EQ(search({"--debug-log", "log", "d"}).status, 0);
    EXPECT_THAT(fscanner::readWholeFile(tree_ / "log"),
                HasSubstr("PathHelper::pathResolver - entering"));
}

}  // namespace

}  // namespace fscan::test
