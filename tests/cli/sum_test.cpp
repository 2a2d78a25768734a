// Matches in groups: --sum.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

#include "program_run.h"

namespace fscan::test {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;

struct Counted {
    unsigned long long files = 0;
    unsigned long long bytes = 0;
    bool operator==(const Counted&) const = default;
};
using Groups = std::map<std::string, Counted>;

void PrintTo(const Counted& counted, std::ostream* out) {
    *out << counted.files << " files, " << counted.bytes << " bytes";
}

class SumTest : public FscanTest {
protected:
    SumTest() {
        add("top.c", "1");
        add("a/one.C", std::string(5000, '1'));
        add("a/deep/two.tar.gz", std::string(70'000, '2'));
        add("a/deep/.hidden", "3");
        add("a/deep/er/empty");
        add("b/ends.");
        add("b/new\nline.c", "4");
        add("b/\xFF.\xFE", "55");
        fs::resize_file(tree_ / "b/ends.", 5ULL << 30);
        fs::create_hard_link(tree_ / "a/one.C", tree_ / "a/one again.h");
        fs::create_symlink("nowhere", tree_ / "a/link.c");
        EXPECT_EQ(::mkfifo((tree_ / "b/pipe").c_str(), 0600), 0);
        age("b/ends.", 3);
        age("a/deep/two.tar.gz", 20);
        age("a/deep/.hidden", 100);
        age("a/deep/er/empty", 1000);
        age("top.c", -10);
    }
    void age(const std::string& path, int days) const {
        const timespec when{::time(nullptr) - days * 86400L, 0};
        const timespec times[] = {when, when};
        EXPECT_EQ(::utimensat(AT_FDCWD, (tree_ / path).c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }

    /// What is to be found, by another walk. Each file once, whatever its names.
    template <class GroupsOf>
    Groups expected(GroupsOf groupsOf, bool allocated = false) const {
        Groups groups;
        std::set<ino_t> met;
        const std::string root = tree_.path();
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            struct stat info {};
            EXPECT_EQ(::lstat(entry.path().c_str(), &info), 0);
            if (S_ISDIR(info.st_mode) || !met.insert(info.st_ino).second) continue;
            const std::string path = "." + entry.path().string().substr(root.size());
            const auto bytes =
                static_cast<unsigned long long>(allocated ? info.st_blocks * 512 : info.st_size);
            for (const std::string& group : groupsOf(path, info)) {
                ++groups[group].files;
                groups[group].bytes += bytes;
            }
        }
        return groups;
    }
    /// Also of the total, as "".
    Groups sums(Arguments arguments, const RunSettings& settings = {}) const {
        arguments.insert(arguments.begin(), {"--json", "--sum"});
        const RunResult result = run(arguments, settings);
        EXPECT_EQ(result.status, 0) << result.err;
        Groups groups;
        for (const std::string& line : records(result.out)) {
            const Json row = Json::parse(line);
            const Counted counted{row["files"], row["bytes"]};
            const bool isTotal = row.contains("total");
            EXPECT_TRUE(groups.emplace(isTotal ? "" : row["group"], counted).second) << line;
        }
        return groups;
    }
};

using Names = std::vector<std::string>;

TEST_F(SumTest, AreThoseOfAnotherWalk) {
    const auto levels = [](std::size_t depth) {
        return [depth](const std::string& path, const struct stat&) {
            Names names{""};
            std::size_t end = 1;
            for (std::size_t level = 0; level < depth; ++level) {
                end = path.find('/', end + 1);
                if (end == path.npos) break;
                names.push_back(path.substr(0, end));
            }
            return names;
        };
    };
    const auto kinds = [](const std::string&, const struct stat& info) {
        const char* kind = S_ISLNK(info.st_mode)    ? "link"
                           : S_ISFIFO(info.st_mode) ? "pipe"
                                                    : "file";
        return Names{"", kind};
    };
    const auto sizes = [](const std::string&, const struct stat& info) {
        const auto size = info.st_size;
        return Names{"", size == 0           ? "0"
                         : size < 4096       ? "<4K"
                         : size < 65536      ? "<64K"
                         : size < 1048576    ? "<1M"
                         : size > 4294967295 ? "more"
                                             : "?"};
    };
    const auto ages = [](const std::string& path, const struct stat&) {
        static const std::map<std::string, std::string> known{{"./b/ends.", "week"},
                                                              {"./a/deep/two.tar.gz", "month"},
                                                              {"./a/deep/.hidden", "year"},
                                                              {"./a/deep/er/empty", "older"},
                                                              {"./top.c", "(future)"}};
        const auto found = known.find(path);
        return Names{"", found == known.end() ? "today" : found->second};
    };
    const auto owners = [](const std::string&, const struct stat& info) {
        return Names{"", info.st_uid == 0 ? "root" : "other"};
    };
    if (::geteuid() == 0) {
        EXPECT_EQ(::chown((tree_ / "b/new\nline.c").c_str(), 4'000'000, 0), 0);
    }
    const std::vector<std::pair<std::string, RunSettings>> ways{
        {"--no-cache", {}}, {"--strict", {.cached = true}}, {"--threads=1", {.cached = true}}};
    for (const auto& [option, settings] : ways) {
        EXPECT_EQ(sums({"dir", option}, settings), expected(levels(1))) << option;
        EXPECT_EQ(sums({"dir", "--depth", "3", option}, settings), expected(levels(3))) << option;
        EXPECT_EQ(sums({"dir", "--allocated", option}, settings), expected(levels(1), true));
        EXPECT_EQ(sums({"kind", option}, settings), expected(kinds)) << option;
        EXPECT_EQ(sums({"size", option}, settings), expected(sizes)) << option;
        EXPECT_EQ(sums({"age", option}, settings), expected(ages)) << option;
        Groups owned = sums({"owner", option}, settings);
        if (const auto other = owned.extract("4000000"); !other.empty())
            owned["other"] = other.mapped();
        EXPECT_EQ(owned, expected(owners)) << option;
    }
}

/// Which name it counts with is not said.
TEST_F(SumTest, AFileWithNamesInSeveralDirectoriesCountsOnce) {
    fs::create_hard_link(tree_ / "a/one.C", tree_ / "b/and again");
    for (const char* option : {"--no-cache", "--strict"}) {
        const Groups groups = sums({"dir", option}, {.cached = true});
        EXPECT_EQ(groups.at("./a").bytes + groups.at("./b").bytes + 1, groups.at("").bytes);
        EXPECT_EQ(groups.at(""), (Counted{10, (5ULL << 30) + 75'012}));
        EXPECT_EQ(sums({"dir", option, "b/"}, {.cached = true}).at("").bytes, (5ULL << 30) + 5003);
    }
}

TEST_F(SumTest, EndingsAreCompared) {
    const Groups groups = sums({"ext", "-x", "one*"});
    EXPECT_EQ(groups.at("c").files, 3U) << "a link has a size, too";
    EXPECT_EQ(groups.at("gz"), (Counted{1, 70'000}));
    EXPECT_EQ(groups.at("(none)"), (Counted{4, (5ULL << 30) + 1}));
    EXPECT_EQ(groups.at("\uFFFD"), (Counted{1, 2}));
}

TEST_F(SumTest, CountWhatASearchFinds) {
    EXPECT_EQ(sums({"dir", "-n", "*.gz"}), (Groups{{"", {1, 70'000}}, {"./a", {1, 70'000}}}));
    EXPECT_EQ(sums({"kind", "--larger", "1G"}),
              (Groups{{"", {1, 5ULL << 30}}, {"file", {1, 5ULL << 30}}}));
    EXPECT_EQ(sums({"dir", "-t", "f", "a/deep/", "b"}), (Groups{{"", {6, (5ULL << 30) + 70'004}},
                                                                {"a/deep", {3, 70'001}},
                                                                {"a/deep/er", {1, 0}},
                                                                {"b", {3, (5ULL << 30) + 3}}}));
    EXPECT_THAT(run({"--sum", "dir", "-n", "nothing"}).out, HasSubstr("total, apparent bytes"));
    // A directory counts in its own sum.
    EXPECT_EQ(sums({"dir", "-t", "d", "a/"}).at("a/deep").files, 2U);
}

TEST_F(SumTest, FromAnUncheckedCacheSayWhatTheyAre) {
    const RunSettings cached{.cached = true};
    sums({"dir"}, cached);
    add("a/deep/.hidden", "longer now");
    const RunResult old = run({"--sum", "dir", "--max-age", "1d", "--json"}, cached);
    EXPECT_THAT(old.err, HasSubstr("sizes are those of the cache"));
    EXPECT_THAT(old.out, HasSubstr("\"cached\":true"));
    EXPECT_THAT(run({"--sum", "dir", "--max-age", "1d"}, cached).out,
                HasSubstr("apparent bytes in the cache"));
    EXPECT_EQ(sums({"dir", "--depth", "2"}, cached).at("./a/deep").bytes, 70'010U);
}

TEST_F(SumTest, ArePrintedForPeopleAndForTables) {
    const Arguments small{"--sum", "ext", "-n", "*.c", "-n", "*.gz"};
    std::string bar;
    for (int i = 0; i < 20; ++i) bar += "\u2588";
    EXPECT_EQ(run(small).out, "68K  100.0%  1  " + bar +
                                  "  gz\n"
                                  "  9    0.0%  3                        c\n"
                                  "68K  100.0%  4                        total, apparent bytes\n");
    Arguments arguments = small;
    arguments.insert(arguments.end(), {"--bytes", "--top", "1"});
    EXPECT_EQ(run(arguments).out,
              "70000  100.0%  1  " + bar +
                  "  gz\n"
                  "70009  100.0%  4                        total of 2 groups, apparent bytes\n");
    arguments.push_back("--csv");
    EXPECT_EQ(run(arguments).out,
              "row,group,files,bytes,share\r\n"
              "group,gz,1,70000,0.999871\r\n"
              "total,,4,70009,1\r\n");
    const Json all = Json::parse(run({"--sum", "ext", "--json-array"}).out);
    EXPECT_EQ(all.back()["groups"], all.size() - 1);
    add("evil/\x1B[31m/x", std::string(100'000, 'x'));
    const RunResult shown =
        run({"--sum", "dir", "--depth", "2"},
            {.environment = {{"COLUMNS", "50"}, {"TERM", "xterm"}}, .to = Stdout::terminal});
    EXPECT_THAT(shown.out, HasSubstr("./evil/\\x1B[31m"));
    for (const std::string& line : records(shown.out)) {
        int columns = -1;  // a "\r"
        for (std::size_t i = 0; i < line.size(); ++i) {
            if (line[i] == '\x1B')
                i = line.find('m', i);
            else if ((line[i] & 0xC0) != 0x80)
                ++columns;
        }
        EXPECT_LE(columns, 50) << line;
    }
}

TEST_F(SumTest, RefuseWhatHasNoSums) {
    const struct {
        Arguments arguments;
        const char* says;
    } table[] = {
        {{"--sum", "dirs"}, "not one of age, dir"},
        {{"--sum", "ext", "-l"}, "--sum prints a table"},
        {{"--sum", "ext", "-c"}, "--sum prints a table"},
        {{"--sum", "ext", "-0"}, "--sum prints a table"},
        {{"--sum", "ext", "--exec", "true", ";"}, "--sum prints a table"},
        {{"--sum", "ext", "--sort", "size"}, "--top limits --sum"},
        {{"--sum", "ext", "--limit", "3"}, "--top limits --sum"},
        {{"--sum", "ext", "--depth", "3"}, "--max-depth"},
        {{"--sum", "ext", "--top", "0"}, "not a number from 1 on"},
        {{"--report", "x", "--sum", "ext"}, "--report writes a page"},
        {{"--report", "x", "--json"}, "--report writes a page"},
        {{"--report", "x", "-0"}, "--report writes a page"},
        {{"--report", "x", "--limit", "3"}, "--report"},
        {{"--top", "3"}, "--sum"},
        {{"--allocated"}, "--sum"},
    };
    for (const auto& row : table) {
        const RunResult result = run(row.arguments);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(row.arguments);
        EXPECT_THAT(result.err, HasSubstr(row.says));
    }
}

/// A browser looks at the page in a test of its own.
TEST_F(SumTest, AReportIsWrittenWholeOrNotAtAll) {
    add("page", "before");
    const Arguments wanted{"--report", tree_ / "page", "-n", "*.gz"};
    const RunResult result = run(wanted);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(fscanner::readWholeFile(tree_ / "page"), HasSubstr("two.tar.gz\",70000]"));
    EXPECT_EQ(run({"--report", tree_ / "none/page"}).status, 4);
    const RunResult full = run({"--report", "/dev/full"});
    EXPECT_EQ(full.status, 4);
    EXPECT_THAT(full.err, HasSubstr("--report: /dev/full: No space left on device"));
    EXPECT_EQ(run({"--report", tree_ / "page", "-n", "nothing"}).status, 1);
    EXPECT_EQ(run({"-n", "page.*"}).out, "") << "nothing is left behind";
}

}  // namespace
}  // namespace fscan::test
