// Advice for users of other programs, and after searches that found nothing.

#include <sstream>

#include "program_run.h"

namespace fscan::test {
namespace {

using testing::HasSubstr;

class HintsTest : public FscanTest {
protected:
    HintsTest() {
        for (const char* file : {"a.h", "b.h", "c.h", "d/sub/x", "d/README"}) add(file, "text");
        std::filesystem::create_directory_symlink("sub", tree_ / "d/link");
    }
};

TEST_F(HintsTest, OptionsOfOtherProgramsAreAnsweredWithOurs) {
    const std::vector<std::pair<Arguments, std::string>> table = {
        {{"d", "-maxdepth", "3"}, "unknown option -maxdepth; write --max-depth N;"},
        {{"-name", "x"}, "unknown option -name; write -n GLOB;"},
        {{"-l", "-type", "f"}, "unknown option -type; write -t KIND"},
        {{"-n", "-name", "-iname", "x"}, "unknown option -iname; write -i -n GLOB;"},
        {{"--sort=path", "-print0"}, "unknown option -print0; write -0;"},
        {{"!", "-name", "x"}, "unknown option !; write --not;"},
        {{"-older", "2d"}, "unknown option -older; did you mean --older? See"},
        {{"-exec", "rm", "{}", ";"}, "unknown option -exec; write -e CMD {} ';';"},
        {{"--extension=h"}, "unknown option --extension=h; write -n "},
        {{"-d3"}, "unknown option -d3; write --max-depth N;"},
        {{"-lH"}, "unknown option -H; names that begin with '.' are found"},
        {{"-e", "h", "d"},
         "-e needs ';' behind its command; for names that end so, write -n '*.h'"},
        {{"-e", "rm", "{}"}, "-e needs ';' behind its command; see"},
        {{"-e.h", "d"},
         "--exec: its command must stand apart; for names that end so, write -n '*.h'"},
        {{"--exec-batch=rm", "d"}, "--exec-batch: its command must stand apart; see"},
        {{"-x", "rm", "{}"}, "-x leaves out a path; to run a command write -e CMD {} ';';"},
    };
    for (const auto& [arguments, message] : table) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const RunResult result = run(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, testing::StartsWith("fscan: " + message));
        EXPECT_EQ(records(result.err).size(), 1U);
    }
}

TEST_F(HintsTest, AValueIsNoOptionOfAnotherProgram) {
    for (const char* name : {"-name", "-type", "!", "-maxdepth"}) add(name);
    for (const Arguments& arguments : {Arguments{"-n", "-name"},
                                       {"-in", "-TYPE"},
                                       {"-n", "!"},
                                       {"--name=-maxdepth"},
                                       {"-lin", "-type"}}) {
        const RunResult result = run(arguments);
        EXPECT_EQ(result.status, 0) << testing::PrintToString(arguments) << result.err;
    }
    EXPECT_EQ(run({"-c", "--", "-name"}).out, "1\n");
}

TEST_F(HintsTest, TheOptionsThatAreAdvisedExist) {
    std::istringstream words(run({"--list-words"}).out);
    std::string known;
    for (std::string kind, names; std::getline(std::getline(words, kind, '\t'), names, '\t');
         std::getline(words, names))
        if (kind == "option") known += " " + names + " ";
    std::istringstream table(
        "-name -ipath -regex -type -maxdepth -mindepth -mtime -newer -size "
        "-perm -user -group -empty ! -or -print0 -execdir -delete -ls -xdev "
        "-prune -executable -follow -E -H -g -d -a -p -X -S --max-results "
        "--regexp --extension");
    for (std::string foreign; table >> foreign;) {
        const std::string said = run({foreign}).err;
        std::istringstream advice(said.substr(std::min(said.find(';'), said.size())));
        for (std::string word; advice >> word;) {
            while (!word.empty() && (word.back() == ',' || word.back() == ';')) word.pop_back();
            if (word.size() < 2 || word == "--" || word == "-f" || word.front() != '-') continue;
            EXPECT_TRUE(known.find(" " + word + " ") != known.npos) << foreign << ": " << word;
        }
        EXPECT_THAT(said, HasSubstr("unknown option " + foreign + "; "));
    }
}

TEST_F(HintsTest, AnEmptyAnswerIsExplainedWhereTheReasonCanBeSeen) {
    const std::string directory = "a directory of that name exists: ";
    const std::vector<std::pair<Arguments, std::string>> table = {
        {{"-n", "d/README"}, "names hold no '/': use --path"},
        {{"-n", "d"}, directory + "d; add -t d"},
        {{"-c", "-n", "sub", "d"}, directory + "d/sub; add -t d"},
        {{"-n", "sub", "d/", "--limit", "3"}, directory + "d/sub; add -t d"},
        {{"-n", "su?", "d"}, ""},
        {{"-n", "sub"}, ""},  // two levels below: only a search could tell
        {{"-n", "link", "-t", "f", "d"}, ""},
        {{"-n", "README", "-t", "d", "d"}, ""},
        {{"-n", "sub", "-t", "d", "--min-depth", "2", "d"}, ""},
        {{"-q", "-n", "sub", "d"}, ""},
        {{"ReadMe"}, "ReadMe is case-sensitive because of its upper-case letters; add -i"},
        {{"-r", "^\\S+Me$"},
         "-r ^\\S+Me$ is case-sensitive because of its upper-case letters; add -i"},
        {{"-r", "^\\Sme$"}, ""},
        {{"-t", "p", "d"}, "d is a part of a name here; to search the directory write d/"},
        {{"-t", "p", "d", "."}, ""},
        {{"-i", "Nothing"}, ""},
        {{"nothing"}, ""},
        {{"-t", "symlink", "d"}, "-t symlink is a word of descriptions; the kind is -t l"},
    };
    for (const auto& [arguments, message] : table) {
        SCOPED_TRACE(testing::PrintToString(arguments));
        const RunResult result = run(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, message.empty() ? "" : "fscan: note: " + message + "\n");
    }
    EXPECT_EQ(run({"-n", "x", "-n", "d/README"}).err, "") << "something was found";
}

TEST_F(HintsTest, APatternThatTheShellExpandedIsToBeQuoted) {
    EXPECT_EQ(shell("exec \"$0\" -n *.h").err,
              "fscan: b.h: Not a directory; quote the pattern: -n '*.h'\n"
              "fscan: c.h: Not a directory; quote the pattern: -n '*.h'\n");
    EXPECT_EQ(shell("exec \"$0\" [ab].h").err,
              "fscan: b.h: Not a directory; quote the pattern: '*.h'\n");
    EXPECT_EQ(shell("exec \"$0\" -n '*.h' a.h").err,
              "fscan: a.h: Not a directory; a name to find goes with -n\n");
    EXPECT_EQ(run({"-n", "a.h", "d/README"}).err, "fscan: d/README: Not a directory\n");
}

}  // namespace
}  // namespace fscan::test
