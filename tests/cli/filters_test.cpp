// Filters that need no criteria, the forms of output, and commands run for matches.

#include <sys/stat.h>

#include <csignal>
#include <nlohmann/json.hpp>
#include <sstream>

#include "program_run.h"

namespace fscan::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class FiltersTest : public FscanTest {
protected:
    // Of different sizes, permissions, times, owners and kinds.
    FiltersTest() {
        addDated("src/a.c", "int main() { return 0; }\n", 0644, "2026-11-01 00:00");
        addDated("src/old/b.c", std::string(3000, '\n'), 0600, "2001-02-03 04:05");
        addDated("run.sh", "#!/bin/sh\n", 0755, "2026-11-01 00:00");
        add("huge");
        std::filesystem::resize_file(tree_ / "huge", 5ull << 30);
        addDated("huge", "", 0444, "2001-02-03 04:05");
        std::filesystem::create_symlink("a.c", tree_ / "src/link");
    }
    void addDated(const char* name, const std::string& text, mode_t mode, const char* time) const {
        if (!text.empty()) add(name, text);
        chmod((tree_ / name).c_str(), mode);
        shell(std::string("touch -d '") + time + "' '" + name + "'");
    }
    nlohmann::json summary() const {
        return nlohmann::json::parse(fscanner::readWholeFile(tree_ / "s.json"));
    }
};

TEST_F(FiltersTest, EachFindsWhatItSays) {
    const std::vector<std::pair<Arguments, std::vector<std::string>>> table = {
        {{"--path", "src/*"}, {"./src/a.c", "./src/link", "./src/old/b.c"}},
        {{"--path", "*c/o*"}, {"./src/old/b.c"}},
        {{"--path", "*LD/B.*", "-i"}, {"./src/old/b.c"}},
        {{"--path", "*old*", "--not", "--path", "*d/b*"}, {}},
        {{"--path", tree_.path().string() + "/*.sh", "--path", "*/OLD/*", "-i"},
         {"./run.sh", "./src/old/b.c"}},
        {{"--path", "b.c", "src/"}, {"src/old/b.c"}},
        {{"--larger", "5G"}, {}},
        {{"--larger", "5368709119"}, {"./huge"}},
        {{"--larger", "2999", "--smaller", "1T"}, {"./huge", "./src/old/b.c"}},
        {{"--smaller", "4"}, {"./src/link"}},
        {{"--perm", "x", "-n", "*.*"}, {"./run.sh"}},
        {{"--perm", "u+w,o+r", "--perm", "g+x"}, {"./run.sh", "./src/link"}},
        {{"--links"}, {"./src/link"}},
        {{"--newer", "2026-10-31", "-n", "*.*"}, {"./run.sh", "./src/a.c"}},
        {{"--older", "2001-02-03 04:06"}, {"./huge", "./src/old/b.c"}},
        {{"--older", "2001-02-03T04:05:00"}, {}},
        {{"--newer", "2h"}, {"./src/link"}},
        {{"--owner", std::to_string(geteuid()), "-n", "r*"}, {"./run.sh"}},
        {{"--owner", "4294967294"}, {}},
        {{"-t", "shell", "-t", "C source"}, {"./run.sh", "./src/a.c"}},
        {{"--links", "-w", "1 || 1"}, {"./src/link"}},
    };
    for (const auto& [arguments, expected] : table)
        EXPECT_EQ(found(arguments), expected) << testing::PrintToString(arguments);
}

/// The paths, without the "/" of directories: scanned, and from a new and an old cache.
TEST_F(FiltersTest, EachFindsWhatFindFinds) {
    addDated("odd/1536", std::string(1536, 'x'), 04755, "2026-11-01 00:00:00.5");
    addDated("odd/1k", std::string(1024, 'x'), 02640, "2026-11-01 00:00:00.6");
    addDated("odd/empty", "", 0600, "2026-11-01 00:00:00.5");
    add("odd/empty");
    for (const char* directory : {"odd/none", "odd/some/none"})
        std::filesystem::create_directories(tree_ / directory);
    add("odd/some/a", "a");
    chmod((tree_ / "odd/some").c_str(), 01777);
    mkfifo((tree_ / "odd/pipe").c_str(), 0600);
    ASSERT_TRUE(geteuid() != 0 || lchown((tree_ / "odd/1k").c_str(), 7, 12345) == 0);
    chmod((tree_ / "odd/1k").c_str(), 02640);
    struct Case {
        Arguments ours;
        Arguments finds;
    };
    const std::string me = std::to_string(geteuid());
    const Case cases[] = {
        {{"--size", "1536"}, {"-size", "1536c"}},
        {{"--size", "1.5k"}, {"-size", "1536c"}},
        {{"--size", "1KiB..1.5KB"}, {"-size", "+1023c", "-size", "-1537c"}},
        {{"--size", "..1k"}, {"-size", "-1025c"}},
        {{"--size", "5G.."}, {"-size", "+5368709119c"}},
        {{"--empty"}, {"-type", "f", "-empty"}},
        {{"-t", "e"}, {"-type", "f", "-empty"}},
        {{"-t", "d", "--empty"}, {"-type", "d", "-empty"}},
        {{"-t", "d", "-t", "f", "-t", "e"}, {"-type", "d,f", "-empty"}},
        {{"-t", "d", "-t", "f", "--not", "--empty"}, {"-type", "d,f", "!", "-empty"}},
        {{"--newer", "odd/1536"}, {"-newer", "odd/1536"}},
        {{"--changed-within", "odd/1k"}, {"-newer", "odd/1k"}},
        {{"--older", "odd/1k"}, {"!", "-newer", "odd/1k", "!", "-samefile", "odd/1k"}},
        {{"--newer", "520w"}, {"-newermt", "520 weeks ago"}},
        {{"--older", "10y"}, {"!", "-newermt", "3650 days ago"}},
        {{"--perm", "4000"}, {"-perm", "-4000"}},
        {{"--perm", "644"}, {"-perm", "-644"}},
        {{"--perm", "=644"}, {"-perm", "644"}},
        {{"--perm", "=4755"}, {"-perm", "4755"}},
        {{"--perm", "u+s"}, {"-perm", "-4000"}},
        {{"--perm", "s"}, {"-perm", "/6000"}},
        {{"--perm", "t", "-t", "d"}, {"-type", "d", "-perm", "-1000"}},
        {{"--perm", "g+s,u+w"}, {"-perm", "-2200"}},
        {{"--group", "12345"}, {"-group", "12345"}},
        {{"--not", "--owner", me}, {"!", "-user", me}},
        {{"--not", "-n", "*.c"}, {"!", "-name", "*.c"}},
        {{"--not", "-n", "*.c", "--not", "-n", "[eh]*"},
         {"!", "-name", "*.c", "!", "-name", "[eh]*"}},
        {{"--not", "EMPTY", "--not", "a", "-n", "*e*"}, {"!", "-name", "*a*", "-name", "*e*"}},
        {{"-n", "*e*", "--not", "--larger=1k"}, {"-name", "*e*", "!", "-size", "+1024c"}},
        {{"--not", "--size", "1k..2k"}, {"!", "(", "-size", "+1023c", "-size", "-2049c", ")"}},
        {{"--not", "--path", "*/odd/*"}, {"!", "-path", "*/odd/*"}},
        {{"--not", "--perm", "u+w"}, {"!", "-perm", "-u+w"}},
        {{"--not", "--perm", "4000"}, {"!", "-perm", "-4000"}},
        {{"--not", "-t", "l"}, {"!", "-type", "l"}},
        {{"--not", "-t", "d", "--not", "-t", "l"}, {"!", "-type", "d", "!", "-type", "l"}},
        {{"--not", "-w", "[SIZE] > 9 || [FILENAME] == \"a\""},
         {"!", "-size", "+9c", "!", "-name", "a"}},
        {{"--not", "--newer", "odd/1536"}, {"!", "-newer", "odd/1536"}},
        {{"--not", "-r", "^[0-9]"}, {"!", "-name", "[0-9]*"}},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(testing::PrintToString(one.ours));
        const auto has = [](const Arguments& words, const std::string& word) {
            return std::find(words.begin(), words.end(), word) != words.end();
        };
        Arguments finds = {".", "-mindepth", "1"};
        finds.insert(finds.end(), one.finds.begin(), one.finds.end());
        if (!has(one.ours, "-t")) finds.insert(finds.end(), {"!", "-type", "d"});
        finds.emplace_back("-print");
        const Arguments right = records(runProgram("find", finds, {.directory = tree_.path()}).out);
        for (const bool cached : {false, true, true}) {
            const RunResult result = run(one.ours, {.cached = cached});
            Arguments paths = records(result.out);
            for (std::string& path : paths)
                if (path.ends_with('/')) path.pop_back();
            std::sort(paths.begin(), paths.end());
            EXPECT_EQ(paths, right) << cached;
            EXPECT_EQ(result.err, "") << cached;
        }
        run({"--cache-clear"}, {.cached = true});
    }
    EXPECT_EQ(found({"--sort", "modified", "-n", "1*", "odd/"}).size(), 2U);
    EXPECT_EQ(run({"--sort", "size,name", "odd/"}).out,
              "odd/empty\nodd/pipe\nodd/some/a\nodd/1k\nodd/1536\n");
    EXPECT_EQ(run({"--sort", "modified", "--sort", "size", "--reverse", "-n", "*.*"}).out,
              "./src/a.c\n./run.sh\n./src/old/b.c\n");
}

// The names make the whole criteria fail: the remaining conditions decide.
TEST_F(FiltersTest, NamesThatArePatternsPassTheSameFilters) {
    addDated("src/*?", "12345", 0755, "2026-11-01 00:00");
    EXPECT_THAT(found({"-n", "*?*", "--larger", "4", "--smaller", "6"}), ElementsAre("./src/*?"));
    EXPECT_THAT(found({"-n", "*?*", "--larger", "5", "--smaller", "6"}), ElementsAre());
    EXPECT_THAT(found({"--path", "src/*?", "--perm", "x", "--smaller", "6", "-n", "?\?"}),
                ElementsAre("./src/*?"));
}

TEST_F(FiltersTest, WhatDecidesAloneIsRemarkedOn) {
    const std::vector<std::pair<Arguments, const char*>> remarks = {
        {{"-w", "2"}, "reads no field: it holds for every file\n"},
        {{"-w", "2 - 1"}, "reads no field: it holds for every file\n"},
        {{"--no-cache", "-w", "path(0, \"x\") == \"*.txt\""}, ""},
        {{"-w", "2 == 1"}, "reads no field: it holds for no file\n"},
        {{"--larger", "9", "--smaller", "10"}, "no size is both"},
        {{"--newer", "3h", "--older", "2h"}, ""},
        {{"--newer", "2026-01-01", "--older", "2026-01-01"}, "no time is both"},
        {{"--larger", "9", "--smaller", "11", "-w", "[SIZE] == 1"}, ""},
    };
    for (const auto& [arguments, remark] : remarks) {
        const std::string said = run(arguments).err;
        EXPECT_EQ(said.empty(), *remark == 0) << said;
        EXPECT_THAT(said, HasSubstr(remark));
    }
}

TEST_F(FiltersTest, FormsForProgramsAreWellFormed) {
    addDated("a,\"\r\n\xFF", "x", 0640, "2001-02-03 04:05");
    const Arguments one = {"-n", "a,*"};
    const auto with = [&](Arguments more) {
        more.insert(more.end(), one.begin(), one.end());
        return run(more).out;
    };
    const auto match = nlohmann::json::parse(with({"--json"}));
    EXPECT_EQ(match["path"], "./a,\"\r\n\xEF\xBF\xBD");
    EXPECT_EQ(match["path_base64"], "Li9hLCINCv8=");
    EXPECT_EQ(match["modified"], "2001-02-03T04:05:00Z");
    EXPECT_EQ(match["attributes"]["words"],
              nlohmann::json({"regular", "owner-read", "owner-write", "group-read"}));
    EXPECT_FALSE(match.contains("type"));
    EXPECT_EQ(nlohmann::json::parse(with({"--json-array", "--with-type"}))[0]["type"],
              "very short file (no magic)");
    EXPECT_EQ(nlohmann::json::parse(run({"--json-array", "-n", "none"}).out),
              nlohmann::json::array());
    EXPECT_THAT(with({"--csv"}),
                testing::MatchesRegex("path,name,directory,size,mode,[^\r]*,links\r\n"
                                      "\"./a,\"\"\r\n\xFF\",\"a,\"\"\r\n\xFF\",.,1,-rw-r-----,file,"
                                      "2001-02-03T04:05:00Z,.*,1\r\n"));
    EXPECT_EQ(with({"--format", "{{{size}}}\\t{kind}\\\\{mode}", "-0"}),
              std::string("{1}\tfile\\-rw-r-----") + '\0');
}

TEST_F(FiltersTest, PathsAreShownAsAskedAndUpToTheLimit) {
    const std::string tree = std::filesystem::canonical(tree_.path());
    EXPECT_THAT(found({"-n", "run*", "--absolute"}), ElementsAre(tree + "/run.sh"));
    EXPECT_THAT(found({"-n", "run*", "--relative", tree}), ElementsAre("./run.sh"));
    EXPECT_THAT(found({"-n", "a.c", "--relative", tree + "/src"}), ElementsAre("src/a.c"));
    EXPECT_EQ(found({"--limit", "2"}).size(), 2u);
    EXPECT_THAT(found({"--limit", "2", "--sort", "size", "--reverse"}),
                ElementsAre("./huge", "./src/old/b.c"));
    EXPECT_EQ(run({"--limit", "3", "-c"}).out, "3\n");
}

TEST_F(FiltersTest, ColoursAndLinksAreForTerminals) {
    const Arguments arguments = {"-n", "run.sh", "-n", "b.c", "--sort", "name"};
    const std::map<std::string, std::string> colours = {
        {"LS_COLORS", "di=01;34:ex=32:*.c=35:*.h=1:ln=target:fi=1\x1B[2m"},
        {"TERM", "xterm"},
        {"NO_COLOR", ""}};
    const std::string plain = "./src/old/b.c\r\n./run.sh\r\n";
    const std::string coloured =
        "\x1B[01;34m./src/old/\x1B[0m\x1B[35mb.c\x1B[0m\r\n"
        "\x1B[01;34m./\x1B[0m\x1B[32mrun.sh\x1B[0m\r\n";
    for (const auto& [name, value, shown] :
         {std::tuple{"NO_COLOR", "1", plain}, {"TERM", "dumb", plain}, {"A", "b", coloured}}) {
        auto environment = colours;
        environment[name] = value;
        EXPECT_EQ(run(arguments, {.environment = environment, .to = Stdout::terminal}).out, shown);
        EXPECT_EQ(run(arguments, {.environment = environment}).out, "./src/old/b.c\n./run.sh\n");
    }
    EXPECT_THAT(run({"-n", "run.sh", "--color", "always"}, {.environment = colours}).out,
                StartsWith("\x1B[01;34m./"));
    const RunSettings linking = {.environment = {{"VTE_VERSION", "7000"}, {"NO_COLOR", "1"}},
                                 .to = Stdout::terminal};
    EXPECT_THAT(run({"-n", "run.sh"}, linking).out,
                testing::MatchesRegex("\x1B]8;;file://[^/]*" +
                                      std::filesystem::canonical(tree_.path()).string() +
                                      "/run.sh\x1B\\\\./run.sh\x1B]8;;\x1B\\\\\r\n"));
}

TEST_F(FiltersTest, CommandsRunInOrderWithoutAShell) {
    add("$(touch hacked); *");
    add("-d/f");
    EXPECT_EQ(run({"-e", "printf", "[%s]", "x{}y", ";", "-n", "*.c"}).out,
              "[x./src/a.cy][x./src/old/b.cy]");
    EXPECT_EQ(run({"--exec-batch", "printf", "[%s]", "-", "{}", "!", "+", "-n", "*.*"}).out,
              "[-][./run.sh][./src/a.c][./src/old/b.c][!]");
    EXPECT_EQ(run({"-e", "printf", "[%s]", ";", "--", "./-d"}).out, "[./-d/f]");
    EXPECT_EQ(run({"-e", "echo", ";", "-n", "$*"}).out, "./$(touch hacked); *\n");
    EXPECT_FALSE(std::filesystem::exists(tree_ / "hacked"));
    EXPECT_EQ(run({"-e", "echo", ";", "--limit", "1", "--sort", "size", "--reverse"}).out,
              "./huge\n");
    const RunResult failed = run({"-e", "sh", "-c", "test -x \"$0\"", ";"});
    EXPECT_EQ(failed.status, 5);
    EXPECT_EQ(failed.err, "fscan: sh: 6 of 7 runs failed\n");
    EXPECT_EQ(run({"--exec-batch", "false", "+", "-n", "none"}).status, 1);
    const RunResult missing = run({"-e", "./no-such-program", ";"});
    EXPECT_EQ(missing.status, 5);
    EXPECT_EQ(missing.err, "fscan: ./no-such-program: No such file or directory\n");
}

/// Ctrl-C goes to the command. If it ends a command, no further command is run.
TEST_F(FiltersTest, AKeyMeantForACommandEndsUsOnlyWithIt) {
    for (const auto& [command, out, status] :
         {std::tuple("trap : INT; kill -INT $PPID; kill -INT $$; echo $0",
                     "src/a.c\nsrc/link\nsrc/old/b.c\n", 0),
          {"echo $0; kill -INT $PPID; kill -INT $$", "src/a.c\n", -SIGINT}}) {
        const RunResult result = run({"src/", "-e", "sh", "-c", command, ";"});
        EXPECT_EQ(result.out, out);
        EXPECT_EQ(result.status, status);
    }
}

TEST_F(FiltersTest, TheSummaryTellsHowCompleteTheAnswerIs) {
    const auto summaryOf = [&](const RunSettings& settings) {
        run({"src/", "--summary-file", "s.json"}, settings);
        return summary();
    };
    const auto scanned = summaryOf({});
    EXPECT_EQ(scanned["matches"], 3);
    EXPECT_EQ(scanned["complete"], true);
    EXPECT_EQ(scanned["scanned"]["directories"], 2);
    EXPECT_EQ(summaryOf({.cached = true})["complete"], true);
    const auto cached = summaryOf({.cached = true});
    EXPECT_EQ(cached["complete"], true);
    EXPECT_EQ(cached["cached"][0]["path"], "src/");
    EXPECT_EQ(nlohmann::json::parse(run({"--summary", "json", "src/"}).err)["matches"], 3);
    if (!canDropOverride()) return;
    chmod((tree_ / "src/old").c_str(), 0);
    const auto denied = summaryOf({.withoutOverride = true});
    chmod((tree_ / "src/old").c_str(), 0700);
    EXPECT_EQ(denied["complete"], false);
    EXPECT_EQ(denied["skipped"],
              nlohmann::json::parse(
                  R"([{"path":"src/old","reason":"denied","error":"Permission denied"}])"));
}

/// A script must not read the file of an earlier run, or take a cut summary for a whole one.
TEST_F(FiltersTest, EveryRunLeavesItsOwnSummary) {
    for (int i = 0; i < 2000; ++i) add("src/" + std::string(200, 'n') + std::to_string(i));
    struct Case {
        Arguments arguments;
        RunSettings settings;
        int status;  ///< in the summary; above 128: the program is ended by that signal
    };
    std::vector<Case> table = {{{"nowhere/"}, {}, 2},
                               {{"src/", "-w", "[SIZE"}, {}, 2},
                               {{"src/"}, {.to = Stdout::full}, 4},
                               {{"src/", "--sort", "size"}, {.to = Stdout::full}, 4},
                               {{"src/"}, {.to = Stdout::readerGone}, 0},
                               {{"src/", "--limit", "1"}, {}, 0},
                               {{"src/", "--limit", "1", "--sort", "size"}, {}, 0},
                               {{"src/", "--limit", "1", "--sort", "name", "--spill"}, {}, 0},
                               {{"src/", "--provider", "nowhere"}, {.cached = true}, 4},
                               {{"src/", "--limit", "1", "-e", "false", ";"}, {}, 5}};
    for (auto& [arguments, settings, status] : table) {
        add("s.json", "old");
        arguments.insert(arguments.begin(), {"--summary-file", "s.json"});
        EXPECT_EQ(run(arguments, settings).status, status);
        EXPECT_EQ(summary()["status"], status) << summary();
        EXPECT_EQ(summary()["complete"], false) << summary();
    }
    // The second run is ended when it has begun to print and the pipe is full.
    for (const auto& [command, status] :
         {std::pair{"$search | head -n 1", 128 + SIGPIPE},
          std::pair{"mkfifo p; $search --sort name > p & exec 3< p; head -c 1 <&3;"
                    "kill -TERM $!; sleep 0.2; cat <&3; wait; rm p",
                    128 + SIGTERM}}) {
        for (const std::string way : {"--max-age=10m", "--no-cache"}) {
            shell("search=\"$0 --summary-file=s.json " + way + " src/\"; " + command);
            EXPECT_EQ(summary()["status"], status) << way;
            EXPECT_EQ(summary()["complete"], false) << way;
        }
    }
}

}  // namespace
}  // namespace fscan::test
