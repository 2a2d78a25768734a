// What is told of files comes from the files that were found, at one moment, whatever
// becomes of their directories since.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <nlohmann/json.hpp>

#include "cli/program_run.h"
#include "support/fault_scale.h"

namespace fscan::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kSecret = "a secret of many bytes, of which nothing is to be told";

class FactsTest : public FscanTest {
protected:
    FactsTest() {
        add("tree/a/f", "text\n");
        add("tree/b/f", "text\n");
        fscanner::writeWholeFile(outside_ / "f", kSecret);
        fs::create_directory_symlink(outside_.path(), tree_ / "link");
    }
    void exchange(const char* one, const char* other) const {
        constexpr unsigned kExchange = 2;  // RENAME_EXCHANGE
        ::syscall(SYS_renameat2, AT_FDCWD, (tree_ / one).c_str(), AT_FDCWD, (tree_ / other).c_str(),
                  kExchange);
    }
    RunResult cached(const Arguments& arguments) const {
        return run(arguments, {.environment = {{"TZ", "UTC"}}, .cached = true});
    }

    fscanner::TemporaryDirectory outside_;
};

/// Ways of telling more than a path.
const std::vector<Arguments>& tellingWays() {
    static const std::vector<Arguments> ways = {
        {"-l"},
        {"--json"},
        {"--json", "--sort", "name"},
        {"--json", "--sort", "size", "--spill"},
        {"--csv"},
        {"--format", "{size} {modified} {path}"},
        {"-l", "--sort", "size"},
        {"--newer", "1970-01-02"},
        {"--owner", std::to_string(::getuid())},
    };
    return ways;
}

TEST_F(FactsTest, ADirectoryThatBecameALinkIsNotFollowed) {
    cached({"tree"});
    exchange("tree/a", "link");
    for (Arguments way : tellingWays()) {
        way.insert(way.begin(), "tree");
        const RunResult result = cached(way);
        EXPECT_THAT(result.out, HasSubstr("tree/b/f")) << way[1];
        EXPECT_THAT(result.out, Not(HasSubstr("tree/a/f"))) << way[1];
        EXPECT_EQ(result.err, "fscan: 1 file is gone since the search found it\n") << way[1];
    }
}

TEST_F(FactsTest, NothingOfOutsideIsToldWhileDirectoriesAreExchanged) {
    const pid_t swapper = ::fork();
    if (swapper == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) exchange("tree/a", "link");
    }
    const std::string secretSize = std::to_string(std::string(kSecret).size());
    for (int i = 0; i < 60 * fscanner::faultScale() && !HasFailure(); ++i)
        for (const bool fromCache : {false, true}) {
            const Arguments arguments{"tree", "--format", "{size}:{kind}:{path}"};
            for (const std::string& line :
                 records((fromCache ? cached(arguments) : run(arguments)).out))
                EXPECT_THAT(line, Not(testing::StartsWith(secretSize + ":file")));
        }
    int status = 0;
    EXPECT_EQ(::waitpid(swapper, &status, WNOHANG), 0) << "the swapper ended by itself";
    ::kill(swapper, SIGKILL);
    ::waitpid(swapper, &status, 0);
}

TEST_F(FactsTest, APathThatIsALinkIsFollowed) {
    fs::create_directory_symlink("tree", tree_ / "way");
    for (const std::string path : {"way", "way/", "way/a/..", "./way"})
        for (const Arguments& sorting : {Arguments{}, Arguments{"--sort", "name"}}) {
            Arguments arguments{path, "--json", "--with-type"};
            arguments.insert(arguments.end(), sorting.begin(), sorting.end());
            for (const bool fromCache : {false, true}) {
                const auto lines = records((fromCache ? cached(arguments) : run(arguments)).out);
                ASSERT_EQ(lines.size(), 2u) << path;
                for (const std::string& line : lines) {
                    const auto match = nlohmann::json::parse(line);
                    EXPECT_EQ(match["exists"], true) << line;
                    EXPECT_EQ(match["type"], "ASCII text") << line;
                    EXPECT_TRUE(std::string(match["path"]).starts_with(path)) << line;
                }
            }
        }
}

// A cached size beside a time of today would be a file that never was.
TEST_F(FactsTest, ALineIsOfOneMoment) {
    cached({"tree"});
    add("tree/a/f", std::string(1000, 'x'));
    fs::permissions(tree_ / "tree/a/f", fs::perms::owner_read);
    EXPECT_THAT(cached({"tree", "-l", "--bytes", "-n", "f", "--path", "a/f"}).out,
                testing::MatchesRegex("-r-------- +1000 .*tree/a/f\n"));
    struct Change {
        const char* name;
        std::function<void()> make;
        const char* line;
        const char* kind;
    };
    const std::string file = tree_ / "tree/a/f";
    const std::vector<Change> changes = {
        {"link", [&] { fs::create_symlink("nowhere", file); }, "lrwxrwxrwx .*", "\"link\""},
        {"directory", [&] { fs::create_directory(file); }, "", ""},
        {"nothing", [] {}, "", ""},
    };
    for (const Change& change : changes) {
        fs::remove_all(file);
        change.make();
        for (const std::string way : {"-l", "--json"}) {
            const RunResult result = cached({"tree", way, "--path", "a/f"});
            const std::string expected = way == "-l" ? change.line : change.kind;
            EXPECT_EQ(result.out.empty(), expected.empty()) << change.name;
            EXPECT_EQ(result.err.empty(), !expected.empty()) << result.err;
            if (way == "-l" && !expected.empty()) {
                EXPECT_THAT(result.out, testing::MatchesRegex(expected));
            } else {
                EXPECT_THAT(result.out, HasSubstr(expected));
            }
        }
    }
}

TEST_F(FactsTest, TimesHaveNoLastDay) {
    for (const char* day : {"2105-06-07", "1895-06-07"}) {
        EXPECT_EQ(shell(std::string("touch -d ") + day + " tree/a/f").status, 0);
        struct stat info {};
        ::stat((tree_ / "tree/a/f").c_str(), &info);
        if (info.st_mtime == static_cast<int>(info.st_mtime))
            continue;  // the disk keeps no such day
        const std::string side = day[0] == '2' ? "--newer=2038-01-20" : "--older=1901-01-01";
        for (const bool fromCache : {false, true})
            for (const Arguments& way :
                 {Arguments{"-l"}, Arguments{"-l", "--sort", "size"}, Arguments{"--json"},
                  Arguments{"-l", "--sort", "name", "--spill"}}) {
                Arguments arguments{"tree", side};
                arguments.insert(arguments.end(), way.begin(), way.end());
                const RunResult result = fromCache ? cached(arguments) : run(arguments);
                EXPECT_THAT(result.out, HasSubstr(day)) << way.back();
                EXPECT_THAT(result.out, Not(HasSubstr("tree/b"))) << way.back();
            }
    }
}

}  // namespace
}  // namespace fscan::test
