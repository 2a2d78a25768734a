// Filters that need no language, the forms of output, and commands run for matches.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "program_run.h"
#include "support/temporary_directory.h"

namespace fscan::test {

namespace {

using fscanner::readWholeFile;
using fscanner::TemporaryDirectory;
using fscanner::writeWholeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

class FiltersTest : public testing::Test {
protected:
    // Of different sizes, permissions, times, owners and kinds.
    FiltersTest() {
        std::filesystem::create_directories(tree_ / "src/old");
        add("src/a.c", "int main() { return 0; }\n", 0644, "2026-11-01 00:00");
        add("src/old/b.c", std::string(3000, '\n'), 0600, "2001-02-03 04:05");
        add("run.sh", "#!/bin/sh\n", 0755, "2026-11-01 00:00");
        add("huge", "", 0444, "2001-02-03 04:05");
        std::filesystem::resize_file(tree_ / "huge", 5ull << 30);
        setTime("huge", "2001-02-03 04:05");
        std::filesystem::create_symlink("a.c", tree_ / "src/link");
    }
    void add(const char* name, const std::string& text, mode_t mode, const char* time) {
        writeWholeFile(tree_ / name, text);
        chmod((tree_ / name).c_str(), mode);
        setTime(name, time);
    }
    void setTime(const char* name, const char* time) {
        const std::string script = std::string("TZ=UTC touch -d '") + time + "' '" + name + "'";
        runProgram("sh", {"-c", script}, {.directory = tree_.path()});
    }
    RunResult search(Arguments arguments, Stdout to = Stdout::pipe,
                     std::map<std::string, std::string> environment = {}) const {
        environment.emplace("TZ", "UTC");
        return fscan(arguments, {.directory = tree_.path(), .environment = environment, .to = to});
    }
    std::vector<std::string> found(const Arguments& arguments) const {
        return records(search(arguments).out);
    }

    TemporaryDirectory tree_;
};

TEST_F(FiltersTest, EachFindsWhatItSays) {
    const std::vector<std::pair<Arguments, std::vector<std::string>>> table = {
        {{"--path", "src/*"}, {"./src/a.c", "./src/link", "./src/old/b.c"}},
        {{"--path", "old/b.c"}, {"./src/old/b.c"}},
        {{"--path", tree_.path().string() + "/*.sh", "--path", "*/OLD/*", "-i"},
         {"./run.sh", "./src/old/b.c"}},
        {{"--path", "b.c", "src"}, {"src/old/b.c"}},
        {{"--larger", "4G"}, {"./huge"}},
        {{"--larger", "5G"}, {}},
        {{"--larger", "5368709119"}, {"./huge"}},
        {{"--larger", "2999", "--smaller", "1T"}, {"./huge", "./src/old/b.c"}},
        {{"--smaller", "4"}, {"./src/link"}},
        {{"--perm", "x", "-n", "*.*"}, {"./run.sh"}},
        {{"--perm", "u+w,o+r", "--perm", "g+x"}, {"./run.sh", "./src/link"}},
        {{"--perm", "a+r", "--smaller", "100", "-n", "*.c"}, {"./src/a.c"}},
        {{"--links"}, {"./src/link"}},
        {{"--newer", "2026-10-31", "-n", "*.*"}, {"./run.sh", "./src/a.c"}},
        {{"--older", "2001-02-03 04:06"}, {"./huge", "./src/old/b.c"}},
        {{"--older", "2001-02-03T04:05:00"}, {}},
        {{"--newer", "2h"}, {"./src/link"}},
        {{"--owner", std::to_string(geteuid()), "-n", "r*"}, {"./run.sh"}},
        {{"--owner", "4294967294"}, {}},
        {{"-t", "shell", "-t", "C"}, {"./run.sh", "./src/a.c"}},
        {{"--links", "-w", "1 || 1"}, {"./src/link"}},
    };
    for (const auto& [arguments, expected] : table)
        EXPECT_EQ(found(arguments), expected) << testing::PrintToString(arguments);
}

// The names make the criteria fail as a whole: what is left of them decides.
TEST_F(FiltersTest, NamesThatArePatternsPassTheSameFilters) {
    add("src/*?", "12345", 0755, "2026-11-01 00:00");
    EXPECT_THAT(found({"-n", "*?*", "--larger", "4", "--smaller", "6"}), ElementsAre("./src/*?"));
    EXPECT_THAT(found({"-n", "*?*", "--larger", "5", "--smaller", "6"}), ElementsAre());
    EXPECT_THAT(found({"--path", "src/*?", "--perm", "x", "--smaller", "6", "-n", "?\?"}),
                ElementsAre("./src/*?"));
}

TEST_F(FiltersTest, WrongValuesAreRefused) {
    const std::vector<std::pair<Arguments, const char*>> table = {
        {{"--larger", "10x"}, "not a size"},
        {{"--larger", "9999999T"}, "not a size"},
        {{"--smaller", ""}, "not a size"},
        {{"--perm", "q"}, "not permissions"},
        {{"--perm", "u+"}, "not permissions"},
        {{"--perm", "u+w,"}, "not permissions"},
        {{"--newer", "yesterday"}, "not a duration"},
        {{"--older", "2026-02-30"}, "not a duration"},
        {{"--owner", "nobody-of-that-name"}, "no user"},
        {{"-t", "a\"b"}, "not a word"},
        {{"--limit", "0"}, "not a number"},
        {{"--color", "sometimes"}, "not one of always, auto, never"},
        {{"--json", "--csv"}, "not with the others of its kind"},
        {{"--json", "-c"}, "only one of"},
        {{"--csv", "-0"}, "--null is for paths"},
        {{"--format", "{pth}"}, "no field {pth}; did you mean path?"},
        {{"--format", "{path"}, "no '}'"},
        {{"-e", "true"}, "needs ';'"},
        {{"--exec-batch", "+"}, "needs a command"},
        {{"-w", "[NAME] == \"x\""}, "did you mean [FILENAME]?"},
        {{"-w", "tpye(\"a\", \"b\")"}, "did you mean type(?"},
    };
    for (const auto& [arguments, message] : table) {
        const RunResult result = search(arguments);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr(message));
    }
    const std::vector<std::pair<Arguments, const char*>> remarks = {
        {{"-w", "2 - 1"}, "reads no field: it holds for every file\n"},
        {{"-w", "2 == 1"}, "reads no field: it holds for no file\n"},
        {{"--larger", "9", "--smaller", "10"}, "no size is both"},
        {{"--newer", "3h", "--older", "2h"}, ""},
        {{"--newer", "2026-01-01", "--older", "2026-01-01"}, "no time is both"},
        {{"--larger", "9", "--smaller", "11", "-w", "[SIZE] == 1"}, ""},
    };
    for (const auto& [arguments, remark] : remarks) {
        const std::string said = search(arguments).err;
        EXPECT_EQ(said.empty(), *remark == 0) << said;
        EXPECT_THAT(said, HasSubstr(remark));
    }
}

TEST_F(FiltersTest, FormsForProgramsAreWellFormed) {
    add("a,\"\r\n\xFF", "x", 0640, "2001-02-03 04:05");
    const Arguments one = {"-n", "a,*"};
    const auto with = [&](Arguments more) {
        more.insert(more.end(), one.begin(), one.end());
        return search(more).out;
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
    EXPECT_EQ(nlohmann::json::parse(search({"--json-array", "-n", "none"}).out),
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
    EXPECT_EQ(search({"--limit", "3", "-c"}).out, "3\n");
}

TEST_F(FiltersTest, ColoursAndLinksAreForTerminals) {
    const Arguments arguments = {"-n", "run.sh", "-n", "b.c", "--sort", "name"};
    const std::map<std::string, std::string> colours = {
        {"LS_COLORS", "di=01;34:ex=32:*.c=35:*.h=1:ln=target:fi=1\x1B[2m"},
        {"TERM", "xterm"},
        {"NO_COLOR", ""}};
    EXPECT_EQ(search(arguments, Stdout::terminal, colours).out,
              "\x1B[01;34m./src/old/\x1B[0m\x1B[35mb.c\x1B[0m\r\n"
              "\x1B[01;34m./\x1B[0m\x1B[32mrun.sh\x1B[0m\r\n");
    const std::string plain = "./src/old/b.c\r\n./run.sh\r\n";
    for (const auto& [name, value] :
         {std::pair{"NO_COLOR", "1"}, {"TERM", "dumb"}, {"COLUMNS", "80"}}) {
        auto environment = colours;
        environment[name] = value;
        const bool coloured = name == std::string("COLUMNS");
        EXPECT_EQ(search(arguments, Stdout::terminal, environment).out == plain, !coloured);
        EXPECT_EQ(search(arguments, Stdout::pipe, environment).out, "./src/old/b.c\n./run.sh\n");
    }
    EXPECT_THAT(search({"-n", "run.sh", "--color", "always"}, Stdout::pipe, colours).out,
                StartsWith("\x1B[01;34m./"));
    EXPECT_THAT(
        search({"-n", "run.sh"}, Stdout::terminal, {{"VTE_VERSION", "7000"}, {"NO_COLOR", "1"}})
            .out,
        testing::MatchesRegex("\x1B]8;;file://[^/]*" +
                              std::filesystem::canonical(tree_.path()).string() +
                              "/run.sh\x1B\\\\./run.sh\x1B]8;;\x1B\\\\\r\n"));
}

TEST_F(FiltersTest, CommandsRunInOrderWithoutAShell) {
    add("$(touch hacked); *", "", 0644, "2001-02-03 04:05");
    std::filesystem::create_directory(tree_ / "-d");
    add("-d/f", "", 0644, "2001-02-03 04:05");
    EXPECT_EQ(search({"-e", "printf", "[%s]", "x{}y", ";", "-n", "*.c"}).out,
              "[x./src/a.cy][x./src/old/b.cy]");
    EXPECT_EQ(search({"--exec-batch", "printf", "[%s]", "-", "{}", "!", "+", "-n", "*.*"}).out,
              "[-][./run.sh][./src/a.c][./src/old/b.c][!]");
    EXPECT_EQ(search({"-e", "printf", "[%s]", ";", "--", "-d"}).out, "[./-d/f]");
    EXPECT_EQ(search({"-e", "echo", ";", "-n", "$*"}).out, "./$(touch hacked); *\n");
    EXPECT_FALSE(std::filesystem::exists(tree_ / "hacked"));
    EXPECT_EQ(search({"-e", "echo", ";", "--limit", "1", "--sort", "size", "--reverse"}).out,
              "./huge\n");
    const RunResult failed = search({"-e", "sh", "-c", "test -x \"$0\"", ";"});
    EXPECT_EQ(failed.status, 5);
    EXPECT_EQ(failed.err, "fscan: sh: 6 of 7 runs failed\n");
    EXPECT_EQ(search({"--exec-batch", "false", "+", "-n", "none"}).status, 1);
    const RunResult missing = search({"-e", "./no-such-program", ";"});
    EXPECT_EQ(missing.status, 5);
    EXPECT_EQ(missing.err, "fscan: ./no-such-program: No such file or directory\n");
}

/// Ctrl-C is for the command; one that it ends is the last.
TEST_F(FiltersTest, AKeyMeantForACommandEndsUsOnlyWithIt) {
    const auto run = [this](const std::string& command) {
        return runProgram(FSCAN_PROGRAM, {"src", "--no-cache", "-e", "sh", "-c", command, ";"},
                          {.directory = tree_.path()});
    };
    const RunResult taken = run("trap : INT; kill -INT $PPID; kill -INT $$; echo $0");
    EXPECT_EQ(taken.out, "src/a.c\nsrc/link\nsrc/old/b.c\n");
    EXPECT_EQ(taken.status, 0);
    const RunResult ended = run("echo $0; kill -INT $PPID; kill -INT $$");
    EXPECT_EQ(ended.out, "src/a.c\n");
    EXPECT_EQ(ended.status, -SIGINT);
}

TEST_F(FiltersTest, BatchesFitAndNothingIsLost) {
    std::filesystem::create_directory(tree_ / "many");
    const std::string end(200, 'n');
    for (int i = 0; i < 8000; ++i) writeWholeFile(tree_ / ("many/" + std::to_string(i) + end), "");
    const RunResult result = search({"many", "--exec-batch", "sh", "-c", "echo $#", "sh", "+"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::istringstream counts(result.out);
    int sum = 0, batches = 0;
    for (int count = 0; counts >> count; sum += count) ++batches;
    EXPECT_EQ(sum, 8000);
    EXPECT_GT(batches, 1);
}

TEST_F(FiltersTest, TheSummaryTellsHowCompleteTheAnswerIs) {
    const auto summary = [&](Arguments arguments, bool cached, bool plain = false) {
        arguments.insert(arguments.end(), {"--summary-file", "s.json"});
        fscan(arguments, {.directory = tree_.path(), .withoutOverride = plain, .cached = cached});
        return nlohmann::json::parse(readWholeFile(tree_ / "s.json"));
    };
    const auto scanned = summary({"src"}, false);
    EXPECT_EQ(scanned["matches"], 3);
    EXPECT_EQ(scanned["complete"], true);
    EXPECT_EQ(scanned["scanned"]["directories"], 2);
    EXPECT_EQ(summary({"src"}, true)["complete"], true);
    const auto cached = summary({"src"}, true);
    EXPECT_TRUE(cached["complete"].is_null());
    EXPECT_EQ(cached["cached"][0]["path"], "src");
    EXPECT_EQ(nlohmann::json::parse(search({"--summary", "json", "src"}).err)["matches"], 3);
    if (!canDropOverride()) return;
    chmod((tree_ / "src/old").c_str(), 0);
    const auto denied = summary({"src"}, false, true);
    chmod((tree_ / "src/old").c_str(), 0700);
    EXPECT_EQ(denied["complete"], false);
    EXPECT_EQ(denied["skipped"],
              nlohmann::json::parse(
                  R"([{"path":"src/old","reason":"denied","error":"Permission denied"}])"));
}

/// A script must not read an earlier run's file, or take what was cut short for whole.
TEST_F(FiltersTest, EveryRunLeavesItsOwnSummary) {
    for (int i = 0; i < 2000; ++i)
        writeWholeFile(tree_ / ("src/" + std::string(200, 'n') + std::to_string(i)), "");
    struct Case {
        Arguments arguments;
        RunSettings settings;
        int status;  ///< in the summary; above 128: the program is ended so
    };
    std::vector<Case> table = {{{"nowhere"}, {}, 2},
                               {{"src", "-w", "[SIZE"}, {}, 2},
                               {{"src"}, {.to = Stdout::full}, 4},
                               {{"src", "--sort", "size"}, {.to = Stdout::full}, 4},
                               {{"src"}, {.to = Stdout::readerGone}, 0},
                               {{"src", "--limit", "1"}, {}, 0},
                               {{"src", "--cache-dir", "src/a.c/d"}, {.cached = true}, 4},
                               {{"src", "--limit", "1", "-e", "false", ";"}, {}, 5}};
    for (auto& [arguments, settings, status] : table) {
        writeWholeFile(tree_ / "s.json", "old");
        arguments.insert(arguments.begin(), {"--summary-file", "s.json"});
        settings.directory = tree_.path();
        EXPECT_EQ(fscan(arguments, settings).status, status);
        const auto summary = nlohmann::json::parse(readWholeFile(tree_ / "s.json"));
        EXPECT_EQ(summary["status"], status) << summary;
        EXPECT_EQ(summary["complete"], false) << summary;
    }
    // The second is ended when it has begun to print and finds the pipe full.
    for (const auto& [command, status] :
         {std::pair{"\"$0\" $1 src | head -n 1", 128 + SIGPIPE},
          std::pair{"mkfifo p; \"$0\" $1 src --sort name > p & exec 3< p; head -c 1 <&3;"
                    "kill -TERM $!; sleep 0.2; cat <&3; wait; rm p",
                    128 + SIGTERM}}) {
        for (const char* way : {"--max-age=10m", "--no-cache"}) {
            const std::string options = std::string("--summary-file=s.json ") + way;
            runProgram("sh", {"-c", command, FSCAN_PROGRAM, options}, {.directory = tree_.path()});
            const auto summary = nlohmann::json::parse(readWholeFile(tree_ / "s.json"));
            EXPECT_EQ(summary["status"], status) << way;
            EXPECT_EQ(summary["complete"], false) << way;
        }
    }
    EXPECT_EQ(search({"src", "--summary-file", "nowhere/s"}).status, 2);
}

TEST_F(FiltersTest, ATerminalIsToldInOneLine) {
    const RunSettings terminal = {.directory = tree_.path(), .watched = true};
    EXPECT_THAT(fscan({"src"}, terminal).err, testing::EndsWith(" s, from a scan\r\n"));
    EXPECT_EQ(fscan({"src", "-q"}, terminal).err, "");
    const RunSettings cached = {.directory = tree_.path(), .watched = true, .cached = true};
    fscan({"src", "--fresh"}, cached);
    EXPECT_THAT(fscan({"src"}, cached).err,
                testing::MatchesRegex(".*3 files in [0-9.]+ s, from the cache .* old.\r\n"));
}

}  // namespace

}  // namespace fscan::test
