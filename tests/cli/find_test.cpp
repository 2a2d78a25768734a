// Results of fscan compared with those of find, on trees with unusual names.

#include "program_run.h"
#include "support/nest.h"
#include "support/private_mounts.h"

namespace fscan::test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const Arguments kHostileNames = [] {
    Arguments names = records(
        "plain.h\0trailing \0-n\0$(id)\0a'b\0a\"b.h\0a\\b\0new\nline.h\0\x01\x1B[31m\0\xFF\xFE\0"
        "latin1-\xE9.h\0\xC3\xA9t\xC3\xA9.h\0*\0?\0a*b.h\0??.h\0[a]\0a:b\0$all::x\0...\0..h\0"
        "\xED\xB2\x80.h"s,
        '\0');
    names.emplace_back(255, 'n');
    names.push_back(std::string(253, 'x') + ".h");
    return names;
}();

class FindTest : public FscanTest {
protected:
    FindTest() {
        // Each name as a file of the top directory, and as a directory with all files.
        for (const std::string& name : kHostileNames) {
            add(name, name);
            if (name.size() > 200) continue;  // the engine's limit for whole paths
            for (const std::string& file : kHostileNames) add("dirs/" + name + "/" + file, file);
        }
        std::filesystem::create_symlink("plain.h", tree_ / "link.h");
        std::filesystem::create_directory_symlink("dirs", tree_ / "dirlink.h");
        mkfifo((tree_ / "fifo.h").c_str(), 0600);
    }

    Arguments found(Arguments arguments, const std::string& locale = "C.UTF-8") const {
        arguments.insert(arguments.begin(), {"-0"});
        const RunResult result = run(arguments, {.environment = {{"LC_ALL", locale}}});
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, result.out.empty() ? 1 : 0);
        return records(result.out, '\0');
    }

    /// The same from find, in the C locale, where every byte is a character.
    Arguments expected(Arguments arguments) const {
        arguments.insert(arguments.end(), {"!", "-type", "d", "-print0"});
        const RunResult result = runProgram(
            "find", arguments, {.directory = tree_.path(), .environment = {{"LC_ALL", "C"}}});
        EXPECT_EQ(result.status, 0);
        return records(result.out, '\0');
    }
};

TEST_F(FindTest, EveryNameOnceInEveryLocale) {
    const Arguments all = expected({"."});
    ASSERT_GT(all.size(), kHostileNames.size() * 20);
    EXPECT_EQ(found({}), all);
    EXPECT_EQ(found({}, "C"), all);
    EXPECT_EQ(found({}, "no_SUCH.locale"), all);
    EXPECT_EQ(found({"-n", "*"}), all);
}

TEST_F(FindTest, NamePatternsMatchLikeFinds) {
    // Patterns with the same meaning in both programs.
    const std::vector<std::string> patterns = {"*.h",    "plain.h", "?lain.h", "*h", "a?b*", "*\"*",
                                               "a\"b.h", "*\n*",    "*$(*",    "* ", "n*n",  "foo"};
    for (const std::string& pattern : patterns)
        EXPECT_EQ(found({"-n", pattern}), expected({".", "-name", pattern})) << pattern;
    EXPECT_EQ(found({"-n", "*.h", "-n", "* *"}),
              expected({".", "(", "-name", "*.h", "-o", "-name", "* *", ")"}));
    EXPECT_EQ(found({"-i", "-n", "*.H"}), expected({".", "-iname", "*.H"}));
}

// What find has no word for is put together from several of its names.
TEST_F(FindTest, BracketsBracesQuotesAndRegularExpressionsMatchLikeFinds) {
    const std::vector<std::tuple<const char*, std::string, Arguments>> table = {
        {"-n", "[ap]*", {"[ap]*"}},
        {"-n", "[!ap]*.h", {"[!ap]*.h"}},
        {"-n", "[^a-p]*", {"[^a-p]*"}},
        {"-n", "*[[:digit:]]*", {"*[[:digit:]]*"}},
        {"-n", "[][]*", {"[][]*"}},
        {"-n", "[[]a]", {"[[]a]"}},
        {"-n", "[a", {"[[]a"}},
        {"-n", "\\[a\\]", {"\\[a\\]"}},
        {"-n", "\\*", {"\\*"}},
        {"-n", "a\\*b.h", {"a\\*b.h"}},
        {"-n", "??.[h]", {"??.[h]"}},
        {"-n", "a\\\\*", {"a\\\\*"}},
        {"-n", "{plain,a?b}.h", {"plain.h", "a?b.h"}},
        {"-n", "{,?}{..,*}h", {"..h", "*h"}},
        {"-n", "{p{l,x}ain,[?]?}.h", {"plain.h", "pxain.h", "[?]?.h"}},
        {"-n", "plain.h{}", {"plain.h"}},
        {"-n", "{plain.h", {"{plain.h"}},
        {"-n", "[\xC3\xA9]t?.h", {"\xC3\xA9t\xC3\xA9.h"}},
        {"-r", "^plain[.]h$", {"plain.h"}},
        {"-r", "n.t", {"*n?t*"}},
        {"-r", "ai", {"*ai*"}},
        {"-r", "la[hi]n[^a-z]h", {"*la[hi]n[!a-z]h*"}},
        {"-r", "latin\\d-.\\.h", {"*latin[0-9]-?.h*"}},
        {"-r", "^p\\x6cain", {"plain*"}},
        {"-r", "[]]", {"*]*"}},
        {"-r", "lax*in{1,2}", {"*lain*"}},
        {"-r", "la(in)(xx)?", {"*lain*"}},
        {"-r", "zz{x|ain", {"*ain*"}},
        {"-r", "\\.h$", {"*.h"}},
        {"-r", "[*?]", {"*[*?]*"}},
        {"-r", "-|:", {"*-*", "*:*"}},
        {"-r", "^(?:plain|xxx)", {"plain*", "xxx*"}},
        {"-r", "plainx*", {"*plain*"}},
        {"-r", "^plainx?[.]", {"plain.*"}},
        {"-r", "^.?$", {"?"}},
        {"-r", "^..$", {"??"}},
        {"-r", "(a.b){1}", {"*a?b*"}},
        {"-r", "\\Alatin1-.\\.h\\z", {"latin1-?.h"}},
    };
    for (const auto& [option, text, names] : table) {
        Arguments any = {".", "("};
        for (const std::string& name : names) any.insert(any.end(), {"-name", name, "-o"});
        any.back() = ")";
        const Arguments right = expected(any);
        const Arguments ours = found({"-t", "f", "-t", "l", "-t", "p", option, text});
        EXPECT_TRUE(ours == right) << text << ": " << ours.size() << " of " << right.size();
    }
    EXPECT_EQ(found({"--path-regex", "/dirs/[^/]*/plain\\.h$"}),
              expected({"./dirs", "-mindepth", "2", "-name", "plain.h"}));
    EXPECT_EQ(run({"-r", "(a"}).status, 2);
    EXPECT_EQ(run({"-n", "[z-a]"}).status, 2);
}

TEST_F(FindTest, APatternIsAPartOfANameInAnyCaseUnlessItSaysMore) {
    add("cased/Plain.H");
    add("cased/\xC3\x89T\xC3\xA9");
    add("cased/A*B");
    const auto all = [&](Arguments arguments) {
        arguments.insert(arguments.begin(), {".", "-mindepth", "1"});
        arguments.emplace_back("-print0");
        const RunResult result = runProgram(
            "find", arguments, {.directory = tree_.path(), .environment = {{"LC_ALL", "C.UTF-8"}}});
        return records(result.out, '\0');
    };
    const std::vector<std::pair<std::string, Arguments>> table = {
        {"plain", {"-iname", "*plain*"}},
        {"Plain", {"-name", "*Plain*"}},
        {"plain.?", {"-iname", "plain.?"}},
        {"*.H", {"-name", "*.H"}},
        {"[p]lain*", {"-iname", "[p]lain*"}},
        {"$(id)", {"-name", "$(id)"}},
        {"\xC3\xA9t", {"-iname", "*\xC3\xA9t*"}},
        {"a\\*b", {"-iname", "*a\\*b*"}},
        {"a\\", {"-iname", "*a\\\\*"}},
        {"\"", {"-name", "*\"*"}},
        {"[a", {"-name", "*[[]a*"}},
        {"a b", {"-name", "*a b*"}}};
    for (const auto& [pattern, finds] : table) {
        for (const bool cached : {false, true}) {
            RunResult result = run({"-0", "--", pattern},
                                   {.environment = {{"LC_ALL", "C.UTF-8"}}, .cached = cached});
            EXPECT_EQ(result.err, "");
            Arguments paths = records(result.out, '\0');
            for (std::string& path : paths)
                if (path.ends_with('/')) path.pop_back();
            std::sort(paths.begin(), paths.end());
            EXPECT_EQ(paths, all(finds)) << pattern << cached;
            // With a size, the criteria decides on files that are examined.
            Arguments sized = finds;
            sized.insert(sized.end(), {"-type", "f", "-size", "+1c"});
            result = run({"-0", "-t", "f", "--larger", "1", "--", pattern},
                         {.environment = {{"LC_ALL", "C.UTF-8"}}, .cached = cached});
            EXPECT_EQ(records(result.out, '\0'), all(sized)) << pattern << cached;
        }
    }
    EXPECT_EQ(run({"-0", "-i", "Plain.H", "dirs/plain.h"}).out, "dirs/plain.h/plain.h\0"s);
    EXPECT_EQ(found({"-n", "plain.h", "cased"}).size(), 0u) << "here the word is a PATH";
    EXPECT_THAT(found({"-r", "^P.*H$"}), ElementsAre("./cased/Plain.H"));
}

TEST_F(FindTest, WildcardsInStoredNamesArePlainCharacters) {
    // "*" and "?" as file names must not match what they would match as patterns.
    EXPECT_THAT(found({"-n", "plain.h", "--no-recurse"}), ElementsAre("./plain.h"));
    EXPECT_THAT(found({"-n", "a*b.h", "--no-recurse"}), ElementsAre("./a\"b.h", "./a*b.h"));
    EXPECT_THAT(found({"-n", "?", "--no-recurse"}), ElementsAre("./*", "./?"));
    // The whole criteria cannot decide them, but the user's own part of it can.
    EXPECT_THAT(found({"-n", "a*b.h", "-w", "[SIZE] == 5", "--no-recurse"}),
                ElementsAre("./a\"b.h", "./a*b.h"));
    EXPECT_THAT(found({"-n", "a*b.h", "-w", "[SIZE] > 5", "--no-recurse"}), IsEmpty());
    // The first file may be one of them.
    for (const char* file : {"lone/x*", "lone/d/x*", "lone/d/xy"}) add(file);
    EXPECT_THAT(found({"-n", "x*", "lone"}), ElementsAre("lone/d/x*", "lone/d/xy", "lone/x*"));
}

TEST_F(FindTest, DirectoriesAreTakenByTheirNames) {
    for (const std::string& name : kHostileNames) {
        if (name.size() > 200) continue;
        SCOPED_TRACE(name);
        const std::string path = "./dirs/" + name;
        EXPECT_EQ(found({path}), expected({path}));
        EXPECT_EQ(found({"--no-recurse", "--", tree_ / "dirs/" + name}),
                  expected({tree_ / "dirs/" + name, "-maxdepth", "1"}));
    }
}

/// A tree of all kinds, with links that lead to files, to directories, to nothing, and around.
class KindsTest : public FscanTest {
protected:
    KindsTest() {
        namespace fs = std::filesystem;
        for (const char* file : {"a/b/c/d/deep.h", "a/b/file", "a/run.sh", "z/.hidden/x", "top"})
            add(file, "text");
        fs::permissions(tree_ / "a/run.sh", fs::perms::group_exec, fs::perm_options::add);
        fs::create_directories(tree_ / "a/empty/inner");
        fs::create_directories(tree_ / "a/what*?/\xFF");
        fs::create_symlink("top", tree_ / "to a file");
        fs::create_symlink("nowhere", tree_ / "a/to nothing");
        fs::create_directory_symlink("../../a/b", tree_ / "z/.hidden/to a directory");
        fs::create_directory_symlink("..", tree_ / "a/b/around");
        mkfifo((tree_ / "a/pipe").c_str(), 0600);
    }

    /// The paths of fscan, a scan's and the cache's, which must be the same.
    Arguments found(Arguments arguments) const {
        arguments.insert(arguments.begin(), {"-0"});
        Arguments all;
        for (const bool cached : {false, true, true}) {
            const RunResult result = run(arguments, {.cached = cached});
            EXPECT_EQ(result.err, "") << cached;
            Arguments paths = records(result.out, '\0');
            for (std::string& path : paths)
                if (path.ends_with('/')) path.pop_back();
            std::sort(paths.begin(), paths.end());
            EXPECT_TRUE(all.empty() || paths == all) << testing::PrintToString(paths);
            all = paths;
        }
        return all;
    }
    /// Those of find, which also names the PATHs themselves.
    Arguments expected(Arguments arguments) const {
        arguments.emplace_back("-print0");
        const RunResult result = runProgram("find", arguments, {.directory = tree_.path()});
        Arguments paths = records(result.out, '\0');
        std::erase(paths, ".");
        return paths;
    }
};

TEST_F(KindsTest, KindsAndDepthsAreThoseOfFind) {
    struct Case {
        Arguments ours;
        Arguments finds;
    };
    const Case cases[] = {
        {{"-t", "f"}, {".", "-type", "f"}},
        {{"-t", "d"}, {".", "-type", "d"}},
        {{"-t", "l"}, {".", "-type", "l"}},
        {{"-t", "p", "-t", "l"}, {".", "-type", "p,l"}},
        {{"-t", "x"}, {".", "-type", "f", "-perm", "/111"}},
        {{"-t", "d", "-n", "?"}, {".", "-type", "d", "-name", "?"}},
        {{"-t", "d", "-t", "f", "-n", "*e*"}, {".", "-type", "d,f", "-name", "*e*"}},
        {{"-t", "d", "-w", "[SIZE] > 40 && [FILENAME] == \"b\""},
         {".", "-type", "d", "-name", "b", "-size", "+40c"}},
        {{"-t", "d", "--perm", "o+w"}, {".", "-type", "d", "-perm", "-o+w"}},
        {{"-t", "d,l"}, {".", "-type", "d,l"}},
        {{"-t", "d", "-x", "a/b"}, {".", "-path", "./a/b", "-prune", "-o", "-type", "d"}},
        {{"-t", "d", "--path", "*/a/*"}, {".", "-type", "d", "-path", "*/a/*"}},
        {{"-t", "d", "--no-recurse"}, {".", "-maxdepth", "1", "-type", "d"}},
        {{"--max-depth", "2"}, {".", "-maxdepth", "2", "!", "-type", "d"}},
        {{"--max-depth", "1", "-t", "d"}, {".", "-maxdepth", "1", "-type", "d"}},
        {{"--min-depth", "3", "-t", "d", "-t", "f"}, {".", "-mindepth", "3", "-type", "d,f"}},
        {{"--min-depth", "2", "--max-depth", "3"},
         {".", "-mindepth", "2", "-maxdepth", "3", "!", "-type", "d"}},
        {{"--not", "-n", "*"}, {".", "-false"}},
        {{"-L"}, {"-L", ".", "!", "-type", "d"}},
        {{"-L", "-t", "d"}, {"-L", ".", "-type", "d"}},
        {{"-L", "-t", "l"}, {"-L", ".", "-type", "l"}},
        {{"-L", "-t", "f", "--max-depth", "2"}, {"-L", ".", "-maxdepth", "2", "-type", "f"}},
        {{"-L", "-t", "d", "-t", "f", "--one-file-system"}, {"-L", ".", "-xdev", "-type", "d,f"}},
    };
    for (const Case& one : cases) {
        const Arguments right = expected(one.finds);
        EXPECT_EQ(found(one.ours), right) << testing::PrintToString(one.ours);
    }
    EXPECT_EQ(run({"--errors", "-L"}).err,
              "fscan: ./a/b/around: a directory that holds it, through a link\n"
              "fscan: ./z/.hidden/to a directory/around/b: a directory that holds it, through a "
              "link\n");
    EXPECT_EQ(run({"-t", "l", "--not", "-t", "l"}).err,
              "fscan: note: no kind is left to be found\n");
    EXPECT_EQ(run({"-t", "y"}).status, 2);
    EXPECT_EQ(run({"--max-depth", "0"}).status, 2);
}

// A link does not make the search enter a file system that it leaves out, also not by a mount point
// in what the link leads to.
TEST_F(KindsTest, LinksLeadToNoFileSystemThatIsLeftOut) {
    std::filesystem::create_directory(tree_ / "links");
    std::filesystem::create_symlink("/proc/self/task", tree_ / "links/tasks");
    std::filesystem::create_symlink("/", tree_ / "links/root");
    const auto below = [](const RunResult& result, const char* path) {
        return result.out.find("links/" + std::string(path) + "/") != std::string::npos;
    };
    const Arguments way = {"-L", "-t", "d", "--max-depth", "3", "links/"};
    const RunResult left = run(way);
    for (const char* at : {"tasks", "root/etc", "root/proc"}) EXPECT_TRUE(below(left, at)) << at;
    EXPECT_FALSE(below(left, "root/proc/sys"));
    EXPECT_EQ(left.out.find("links/tasks/") + 12,
              left.out.find('\n', left.out.find("links/tasks/")));
    Arguments all = way;
    all.insert(all.begin(), "--all-fs");
    EXPECT_TRUE(below(run(all), "root/proc/sys"));
}

// Mounted file systems are not entered; of each the mount point is found.
TEST_F(KindsTest, OneFileSystemIsThatOfEachPath) {
    fscanner::withPrivateMounts([&] {
        for (const char* at : {"a/b", "a/b/c", "z/m*"}) {
            std::filesystem::create_directories(tree_ / at);
            if (!fscanner::mountMemory("none", tree_ / at)) return fscanner::kNotAllowed;
            std::filesystem::create_directories(tree_ / (std::string(at) + "/c/inside"));
            add(std::string(at) + "/file");
        }
        std::filesystem::create_directory_symlink("../a/b", tree_ / "z/link");
        const std::pair<Arguments, Arguments> cases[] = {
            {{"-t", "f"}, {".", "-xdev", "-type", "f"}},
            {{"-t", "d"}, {".", "-xdev", "-type", "d"}},
            {{"-t", "d", "--max-depth", "2"}, {".", "-xdev", "-maxdepth", "2", "-type", "d"}},
            {{"-t", "d", "-n", "[bm]*"}, {".", "-xdev", "-type", "d", "-name", "[bm]*"}},
            {{"-n", "file", "./a/b", "./z"}, {"./a/b", "./z", "-xdev", "-name", "file"}},
            {{"-L", "-t", "d", "-t", "f"}, {"-L", ".", "-xdev", "-type", "d,f"}},
        };
        for (auto [ours, finds] : cases) {
            ours.insert(ours.begin(), "--one-file-system");
            const Arguments right = expected(finds);
            EXPECT_EQ(found(ours), right) << testing::PrintToString(ours);
        }
        return HasFailure() ? 1 : 0;
    });
}

TEST_F(KindsTest, IgnoredAndHiddenFilesAreLeftOut) {
    add(".gitignore", "*.o\n/build/\n!keep.o\n");
    add("a/.ignore", "file\n");
    for (const char* file : {"x.o", "keep.o", "build/out", "a/build/in", "a/b/x.o", ".git/HEAD"})
        add(file);
    EXPECT_EQ(found({"--ignore", "-t", "f"}),
              (Arguments{"./.gitignore", "./a/.ignore", "./a/b/c/d/deep.h", "./a/build/in",
                         "./a/run.sh", "./keep.o", "./top", "./z/.hidden/x"}));
    EXPECT_EQ(found({"--ignore", "-t", "d", "-n", "{build,.git}"}), (Arguments{"./a/build"}));
    EXPECT_EQ(found({"--no-hidden", "-t", "f", "-t", "d"}),
              expected({".", "-mindepth", "1", "-name", ".*", "-prune", "-o", "-type", "d,f"}));
    EXPECT_EQ(found({"--no-hidden", "-t", "f", "z/.hidden/"}), (Arguments{"z/.hidden/x"}));
    // A scan does not even enter what is left out.
    EXPECT_THAT(run({"--ignore", "--no-hidden", "--stats", "-t", "f"}).err,
                testing::HasSubstr(", 11 directories\n"));
}

TEST_F(KindsTest, DirectoriesArePrintedCountedSortedAndGivenToCommands) {
    EXPECT_EQ(run({"-t", "d", "--sort", "pathname", "-n", "?"}).out,
              "./a/\n./a/b/\n./a/b/c/\n./a/b/c/d/\n./a/what*?/\xFF/\n./z/\n");
    EXPECT_EQ(run({"-t", "d", "-c"}).out, "10\n");
    EXPECT_EQ(run({"-t", "d", "-n", "c", "-e", "echo", ";"}).out, "./a/b/c\n");
    EXPECT_EQ(run({"-t", "d", "-n", "c", "--format", "{kind} {name} {path}"}).out,
              "directory c ./a/b/c\n");
    EXPECT_THAT(run({"-t", "d", "-n", "c", "-l"}).out, testing::StartsWith("drwxr-xr-x"));
    EXPECT_THAT(run({"-t", "d", "-n", "c", "--json"}).out,
                testing::HasSubstr("\"kind\":\"directory\""));
}

// Whether directories are read ahead, for a search or for a cache, does not show.
TEST_F(KindsTest, ThreadsChangeNoByteOfTheAnswer) {
    std::string deep = "deep";
    for (int level = 0; level < 60; ++level) add((deep += "/m") + "/file", "text");
    for (int i = 0; i < 300; ++i) add("wide/" + std::to_string(i) + "/s/file", "text");
    const Arguments ways[] = {
        {"-t", "d", "-t", "f"}, {"--json"}, {"-c"}, {"--ignore", "--larger", "1"}, {"-L"}};
    for (const Arguments& way : ways) {
        for (const char* place : {"--fresh", "--no-cache"}) {
            const auto with = [&](const char* threads) {
                Arguments arguments = way;
                arguments.insert(arguments.end(), {place, "--threads", threads, "-x", "*/7", "./"});
                const RunResult result = run(arguments, {.cached = true});
                EXPECT_EQ(result.status, 0) << result.err;
                return result.out;
            };
            if (way[0] == "-L" && place == std::string("--fresh")) continue;
            const std::string one = with("1");
            EXPECT_GT(one.size(), 2U);
            for (const char* threads : {"2", "16"})
                EXPECT_TRUE(with(threads) == one) << way[0] << place << threads;
        }
    }
}

/// A chain of directories whose paths are longer than the system takes in a call.
class DeepTest : public FscanTest {
protected:
    static constexpr int kLevels = 10000;

    ~DeepTest() override { runProgram("rm", {"-rf", tree_ / "deep"}); }
    /// One of so many directories has a long name, and every hundredth has a file. Returns
    /// the paths that find prints there.
    Arguments plant(int everyLong) const {
        std::filesystem::create_directory(tree_ / "deep");
        fscanner::Nest nest(tree_ / "deep");
        for (int level = 1; level <= kLevels; ++level) {
            nest.down(std::string(level % everyLong == 0 ? 255 : 1, 'm'));
            if (level % 100 == 0) nest.file("f");
        }
        return records(runProgram("find", {"deep", "-type", "f"}, {.directory = tree_.path()}).out);
    }
};

TEST_F(DeepTest, TenThousandLevelsAreFoundInEveryWay) {
    const Arguments expected = plant(40);
    ASSERT_EQ(expected.size(), kLevels / 100u);
    const Arguments ways[] = {
        {"-n", "f"}, {"--sort", "path"}, {"--sort", "name", "--spill"}, {"-t", "empty"}};
    for (const Arguments& way : ways) {
        for (const bool cached : {false, true}) {
            Arguments arguments = way;
            arguments.insert(arguments.end(), {"--", "deep/"});
            const RunResult result = run(arguments, {.cached = cached});
            EXPECT_EQ(result.err, "");
            EXPECT_EQ(result.status, 0);
            EXPECT_TRUE(records(result.out) == expected) << way[0] << cached;
        }
    }
    const std::string middle = expected[50].substr(0, expected[50].size() - 2);
    EXPECT_EQ(run({"-c", "-x", tree_ / middle, "deep/"}).out, "50\n");
}

TEST_F(DeepTest, PathsOfAMegabyteAreSorted) {
    const Arguments expected = plant(2);
    for (const char* key : {"pathname", "name"}) {
        const RunResult result = run({"--sort", key, "deep/"});
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(records(result.out) == expected) << key;
        // The shorter paths first: "f" stands before the "m" of the next level.
        EXPECT_LT(result.out.find('\n'), 20000u);
    }
}

// A file whose path is too long for an argument is named, and the command is run for the rest.
TEST_F(DeepTest, CommandsAreToldOfAllPathsThatFit) {
    constexpr std::size_t room = 131072;
    Arguments expected = plant(10);
    const std::size_t all = expected.size();
    std::erase_if(expected, [](const std::string& path) { return path.size() >= room; });
    ASSERT_GT(expected.size(), 0u);
    ASSERT_LT(expected.size(), all);
    for (const Arguments& command : {Arguments{"-e", "printf", "%s\\n", ";"},
                                     Arguments{"--exec-batch", "printf", "%s\\n", "+"}}) {
        Arguments arguments = command;
        arguments.emplace_back("deep/");
        const RunResult result = run(arguments);
        EXPECT_EQ(result.status, 5);
        EXPECT_TRUE(records(result.out) == expected);
        EXPECT_EQ(records(result.err).size(), all - expected.size());
    }
}

}  // namespace
}  // namespace fscan::test
