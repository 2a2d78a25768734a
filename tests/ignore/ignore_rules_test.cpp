// What is left out, compared with what git says of random trees, and with tables.

#include "fscan/ignore/ignore_rules.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>

#include "fscan/text/text.h"
#include "support/fault_scale.h"
#include "support/scoped_locale.h"
#include "support/temporary_directory.h"

namespace fscan {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

class IgnoreRulesTest : public testing::Test {
protected:
    void add(const std::string& path, const std::string& text = "") const {
        fs::create_directories((tree_.path() / path).parent_path());
        fscanner::writeWholeFile(tree_ / path, text);
    }
    fs::path root() const { return fs::canonical(tree_.path()); }

    /// The paths below the directory that are not left out, except for rule files.
    std::set<std::string> kept(const std::string& below = ".",
                               IgnoreRules::Kinds kinds = {.files = true}) const {
        std::set<std::string> paths;
        const fs::path top = (root() / below).lexically_normal();
        IgnoreRules rules(toWide(top), kinds);
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(top)) {
            const std::string name = entry.path().filename();
            const bool isDirectory = entry.is_directory() && !entry.is_symlink();
            const bool left =
                rules.covers(toWide(entry.path().parent_path()), toWide(name).c_str(), isDirectory);
            EXPECT_TRUE(!isDirectory || rules.enters(toWide(entry.path())) != left) << entry.path();
            const bool isRule = name == ".gitignore" || name == ".ignore";
            if (!left && !isRule) paths.insert(entry.path().lexically_relative(top));
        }
        return paths;
    }

    fscanner::TemporaryDirectory tree_;

private:
    fscanner::ScopedLocale locale_{"C.UTF-8"};
};

/// Makes trees and rules of few characters, so that rules often match.
class RandomTree {
public:
    RandomTree(fs::path top, unsigned seed) : top_(std::move(top)), random_(seed) {}

    /// Returns what is in it, except for rule files.
    std::vector<std::string> plant() {
        fill("", 0);
        return paths_;
    }
    std::string rules() {
        std::string text = below(20) == 0 ? "\xEF\xBB\xBF" : "";
        for (unsigned line = 1 + below(6); line > 0; --line) text += rule() + ending();
        return text;
    }

private:
    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    template <std::size_t N>
    std::string one(const char* const (&texts)[N]) {
        return texts[below(N)];
    }

    std::string name() {
        std::string text;
        for (unsigned length = 1 + below(3); length > 0; --length)
            text += one({"a",  "b", "a", "b", "c",        ".",    "-",  " ",  "*", "[", "]",
                         "\\", "!", "#", "?", "\xC3\xA9", "\xFF", "\n", "\r", "1", "A"});
        return text == "." || text == ".." ? "ab" : text;
    }

    std::string set() {
        return one({"[ab]",         "[!a]",   "[^ab]",       "[a-c]",       "[]a]",
                    "[a-]",         "[\\]b]", "[[:alpha:]]", "[[:foo:]]",   "[ab",
                    "[[:punct:]1]", "[!]a-]", "[c-a]",       "[\xC3\xA9]",  "[[:]",
                    "[\\a-\\c]",    "[a\\",   "[-a]",        "[a-c-]",      "[[:digit:]-a]",
                    "[!/]",         "[/]a",   "[]-a]",       "[[:space:]]", "[[:upper:]",
                    "[\x80-\xFF]",  "[[a]",   "[![:alnum:]]"});
    }

    std::string part() {
        std::string text;
        for (unsigned length = 1 + below(3); length > 0; --length) {
            switch (below(9)) {
                case 0:
                case 1:
                    text += one({"*", "*", "?", "**", "***"});
                    break;
                case 2:
                    text += set();
                    break;
                case 3:
                    text += '\\' + one({"a", "*", "[", "\\", "!", "#", " ", "?", "/", ""});
                    break;
                default:
                    text += name();
            }
        }
        return text;
    }

    std::string rule() {
        std::string text = one({"", "", "", "!", "!", "#", "/", "!/", "**/", "\\!", " "});
        text += paths_.empty() || below(3) != 0
                    ? part()
                    : paths_[below(static_cast<unsigned>(paths_.size()))];
        for (unsigned more = below(3); more > 0; --more)
            text += one({"/", "/", "/**/", "/*/", "//"}) + part();
        return text + one({"", "", "", "/", "/**", "/*", "//", "\\/"});
    }

    std::string ending() {
        return one({"", "", "", " ", "  ", "\\ ", "\t"}) +
               one({"\n", "\n", "\n", "\r\n", "\n\n", "\r\n"});
    }

    void fill(const std::string& directory, int depth) {
        for (unsigned count = 2 + below(4); count > 0; --count) {
            const std::string path = directory + name();
            if (fs::exists(fs::symlink_status(top_ / path))) continue;
            paths_.push_back(path);
            if (depth < 4 && below(2) == 0) {
                fs::create_directory(top_ / path);
                fill(path + '/', depth + 1);
            } else {
                fscanner::writeWholeFile(top_ / path, "");
            }
        }
        if (depth == 0 || below(4) == 0)
            fscanner::writeWholeFile(top_ / (directory + ".gitignore"), rules());
    }

    fs::path top_;
    std::mt19937 random_;
    std::vector<std::string> paths_;
};

/// The paths that git does not ignore.
std::set<std::string> keptByGit(const fs::path& tree, const std::vector<std::string>& paths,
                                const fs::path& scratch) {
    std::string input;
    for (const std::string& path : paths) input += path + '\0';
    fscanner::writeWholeFile(scratch / "in", input);
    const std::string command =
        "cd '" + tree.native() +
        "' && GIT_CONFIG_NOSYSTEM=1 HOME=/nonexistent XDG_CONFIG_HOME=/nonexistent "
        "git check-ignore --no-index --stdin -z <'" +
        (scratch / "in").native() + "' >'" + (scratch / "out").native() + "'";
    const int status = std::system(command.c_str());
    EXPECT_LE(WEXITSTATUS(status), 1) << tree;
    std::set<std::string> kept(paths.begin(), paths.end());
    const std::string output = fscanner::readWholeFile(scratch / "out");
    for (std::size_t at = 0; at < output.size();) {
        const std::size_t end = output.find('\0', at);
        kept.erase(output.substr(at, end - at));
        at = end + 1;
    }
    return kept;
}

bool isGitThere() {
    return std::system("git --version >/dev/null 2>&1") == 0;
}

/// Paths that differ from git's verdicts.
std::vector<std::string> different(const std::set<std::string>& kept,
                                   const std::set<std::string>& expected) {
    std::vector<std::string> wrong;
    std::ranges::set_symmetric_difference(kept, expected, std::back_inserter(wrong));
    return wrong;
}

void makeRepository(const fs::path& tree) {
    for (const char* directory : {"info", "objects", "refs"})
        fs::create_directories(tree / ".git" / directory);
    fscanner::writeWholeFile(tree / ".git/HEAD", "ref: refs/heads/main\n");
}

// Each rule in a directory of its own, over the same files.
TEST_F(IgnoreRulesTest, EachRuleMeansWhatItMeansToGit) {
    if (!isGitThere()) GTEST_SKIP() << "no git";
    const std::vector<std::string> rules = {"a",
                                            "a/",
                                            "/a",
                                            "a/b",
                                            "/a/b/",
                                            "a/*",
                                            "a/**",
                                            "**/b",
                                            "a/**/c",
                                            "a**/c",
                                            "a/**c",
                                            "**",
                                            "/**",
                                            "***/c",
                                            "*/b",
                                            "*/*/c",
                                            "**/",
                                            "**/b/",
                                            "a/**/",
                                            "?/b",
                                            "a?b",
                                            "a[/]b",
                                            "a[!x]b",
                                            "a/b[!x]c",
                                            "[a-c-e]",
                                            "[a-c-]",
                                            "[-a]",
                                            "[]-a]",
                                            "[!]]",
                                            "[\\]]",
                                            "[a\\-c]",
                                            "[\\a-\\c]",
                                            "[c-a]",
                                            "[[:alpha:]]",
                                            "[[:alpha:]-]",
                                            "[[:digit:]-a]",
                                            "[[:foo:]]",
                                            "[[:]",
                                            "[[:a]",
                                            "[[:alpha:]",
                                            "[a",
                                            "a\\",
                                            "\\a",
                                            "\\!a",
                                            "\\#a",
                                            "!a",
                                            "#a",
                                            "a ",
                                            "a\\ ",
                                            "a \\ ",
                                            "a\t",
                                            " a",
                                            "a\r",
                                            "a/\r",
                                            "*\n!a",
                                            "*\n!*/\n!c",
                                            "*\n!a/\n!a/b/",
                                            "a/\\*",
                                            "*\\*",
                                            "*a",
                                            "*a/",
                                            "/*a",
                                            "*[ab]",
                                            "a*\\/c",
                                            "**\\/c",
                                            "a/**\\/c",
                                            "\\/a",
                                            "a//b",
                                            "//a",
                                            "/",
                                            "!/",
                                            "a/b/c",
                                            "[[:upper:][:digit:]]",
                                            "[^a]",
                                            "\xC3?",
                                            "??",
                                            "[\xC0-\xFF]*",
                                            "[[:print:]]",
                                            "[[:xdigit:]]",
                                            "[[:punct:]]",
                                            "a/*/",
                                            "*/",
                                            "b\n!b/"};
    const std::vector<std::string> names = {
        "a/b/c", "a/b/d/c", "a/c", "b/b/b", "c",        "d",    "e",    "-",      "]",  "[",
        "\\",    "a ",      "a\t", " a",    "a\r",      "!a",   "#a",   "*",      "ab", "aab",
        "a-b",   "b/a/b",   "1",   "A",     "\xC3\xA9", "\xFF", "ba/a", "x/a/b/c"};
    makeRepository(root());
    std::vector<std::string> paths;
    for (std::size_t rule = 0; rule < rules.size(); ++rule) {
        const std::string directory = "r" + std::to_string(rule);
        add(directory + "/.gitignore", rules[rule] + '\n');
        for (const std::string& name : names) add(directory + '/' + name);
    }
    for (const std::string& path : kept(".", {.hidden = true})) paths.push_back(path);
    fscanner::TemporaryDirectory scratch;
    const std::vector<std::string> wrong =
        different(kept(), keptByGit(root(), paths, scratch.path()));
    for (const std::string& path : wrong)
        ADD_FAILURE() << path << " by " << rules[std::stoul(path.substr(1))];
}

TEST_F(IgnoreRulesTest, RandomRulesMeanWhatGitTakesThemFor) {
    if (!isGitThere()) GTEST_SKIP() << "no git";
    const auto trees = static_cast<unsigned>(60 * fscanner::faultScale());
    std::size_t tried = 0;
    std::size_t left = 0;
    for (unsigned seed = 0; seed < trees; ++seed) {
        const std::string name = "t" + std::to_string(seed);
        const fs::path tree = root() / name;
        makeRepository(tree);
        RandomTree random(tree, seed);
        const std::vector<std::string> paths = random.plant();
        fscanner::writeWholeFile(tree / ".git/info/exclude", random.rules());
        const std::set<std::string> expected = keptByGit(tree, paths, root());
        EXPECT_THAT(different(kept(name), expected), IsEmpty()) << "seed " << seed;
        tried += paths.size();
        left += paths.size() - expected.size();
        fs::remove_all(tree);
    }
    EXPECT_GT(left, tried / 10);
    EXPECT_GT(tried - left, tried / 10);
    RecordProperty("paths", static_cast<int>(tried));
}

// What git has no word on: .ignore, trees without a repository, and what is searched.

TEST_F(IgnoreRulesTest, RulesHoldWithoutARepositoryAndInnerOnesOverrule) {
    add(".gitignore", "*.o\n*.log\n/build/\nout\n");
    add(".ignore", "!b.o\n*.tmp\n");
    add("sub/.gitignore", "!keep.log\n!x.tmp\n");
    for (const char* path : {"a.o", "b.o", "x.tmp", "c", "build/c", "sub/build/c", "sub/keep.log",
                             "sub/other.log", "sub/x.tmp", "sub/out/c", "deep/er/still/a.o"})
        add(path);
    EXPECT_THAT(kept(), ElementsAre("b.o", "c", "deep", "deep/er", "deep/er/still", "sub",
                                    "sub/build", "sub/build/c", "sub/keep.log"));
    // Nothing above a PATH counts outside of a repository.
    EXPECT_THAT(kept("sub"),
                ElementsAre("build", "build/c", "keep.log", "other.log", "out", "out/c", "x.tmp"));
}

TEST_F(IgnoreRulesTest, RulesOfARepositoryHoldFromItsTopOn) {
    add(".gitignore", "*.x\n");
    add(".ignore", "*.y\n");
    add("repo/.git/info/exclude", "*.z\n/top\n");
    add("repo/.gitignore", "/d/e/a\nd/skipped\n");
    add("repo/d/.ignore", "!f.z\n");
    for (const char* path :
         {"1.x", "1.y", "repo/1.x", "repo/1.y", "repo/1.z", "repo/top", "repo/d/e/a", "repo/d/e/b",
          "repo/d/e/f.z", "repo/d/e/g.z", "repo/d/e/top", "repo/d/skipped/a"})
        add(path);
    EXPECT_THAT(kept(), ElementsAre("repo", "repo/1.x", "repo/1.y", "repo/d", "repo/d/e",
                                    "repo/d/e/b", "repo/d/e/f.z", "repo/d/e/top"));
    EXPECT_THAT(kept("repo/d/e"), ElementsAre("b", "f.z", "top"));
    // The user asked for this directory.
    EXPECT_THAT(kept("repo/d/skipped"), ElementsAre("a"));
    // A repository of its own, whose .git is a file.
    add("repo/d/e/.git", "gitdir: /elsewhere\n");
    EXPECT_THAT(kept("repo"), ElementsAre("1.x", "1.y", "d", "d/e", "d/e/a", "d/e/b", "d/e/f.z",
                                          "d/e/g.z", "d/e/top"));
}

TEST_F(IgnoreRulesTest, OnlySmallRegularFilesAreRead) {
    add("rules", "*\n");
    add("a/x");
    add("b/x");
    add("c/x");
    add("d/x");
    add("d/.git/exclude", "*\n");
    add("e/x\xFF");
    add("e/y\xFE");
    fs::create_symlink("../rules", root() / "a/.gitignore");
    ASSERT_EQ(mkfifo((root() / "b/.ignore").c_str(), 0600), 0);
    add("c/.gitignore", "*\n" + std::string(1 << 20, '\n'));
    fs::create_directory_symlink(".", root() / "d/.git/info");
    add("e/.gitignore", std::string("\xEF\xBB\xBFx\xFF\ny\0z\ny[\xF0-\xFE]", 17));
    EXPECT_THAT(kept(), ElementsAre("a", "a/x", "b", "b/x", "c", "c/x", "d", "d/x", "e", "rules"));
}

TEST_F(IgnoreRulesTest, HiddenNamesAreLeftOutWithAllBelow) {
    for (const char* path : {".a", "b", ".c/d", ".c/.gitignore", "e/.f/g", "e/h", "..i"}) add(path);
    add(".gitignore", "b\n");
    EXPECT_THAT(kept(".", {.hidden = true}), ElementsAre("b", "e", "e/h"));
    EXPECT_THAT(kept(".", {.files = true, .hidden = true}), ElementsAre("e", "e/h"));
    EXPECT_THAT(kept(".c", {.hidden = true}), ElementsAre("d"));
}

/// Directories are asked for in any order where an answer comes from the cache.
TEST_F(IgnoreRulesTest, TheOrderOfQuestionsDoesNotMatter) {
    add("a/.gitignore", "x\n/b\n");
    add("ab/.gitignore", "y\n");
    for (const char* path : {"a/b/x", "a/c/x", "a/c/y", "ab/x", "ab/y"}) add(path);
    IgnoreRules rules(toWide(root()), {.files = true});
    const auto left = [&](const char* directory, const wchar_t* name) {
        return rules.covers(toWide(root() / directory), name, false);
    };
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(left("a/b", L"y"));
        EXPECT_TRUE(left("ab", L"y"));
        EXPECT_TRUE(left("a/c", L"x"));
        EXPECT_FALSE(left("a/c", L"y"));
        EXPECT_FALSE(left("ab", L"x"));
        EXPECT_FALSE(rules.enters(toWide(root() / "a/b")));
        EXPECT_TRUE(rules.enters(toWide(root().parent_path())));
    }
}

}  // namespace
}  // namespace fscan
