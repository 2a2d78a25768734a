// Facts about files come from the files that were found, at one moment, whatever
// becomes of their directories later.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <nlohmann/json.hpp>

#include "cli/program_run.h"
#include "support/fault_scale.h"

namespace fscan::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kSecret = "a secret of many bytes, of which nothing is to be told";

/// An option that runs commands, and the word that ends them.
using CommandWay = std::pair<const char*, const char*>;
constexpr std::array<CommandWay, 3> kCommandWays = {
    {{"--exec", ";"}, {"--exec-batch", "+"}, {"--exec-dir", ";"}}};

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

TEST_F(FactsTest, ADirectoryThatBecameALinkIsNotFollowed) {
    cached({"tree/"});
    exchange("tree/a", "link");
    for (Arguments way : {Arguments{"-l"},
                          {"--json"},
                          {"--json", "--sort", "size", "--spill"},
                          {"--csv"},
                          {"--format", "{size} {modified} {path}"},
                          {"-l", "--sort", "size"},
                          {"--newer", "1970-01-02"},
                          {"--owner", std::to_string(::getuid())}}) {
        way.insert(way.begin(), {"--max-age=1d", "tree/"});
        const RunResult result = cached(way);
        EXPECT_THAT(result.out, HasSubstr("tree/b/f")) << way[2];
        EXPECT_THAT(result.out, Not(HasSubstr("tree/a/f"))) << way[2];
        EXPECT_EQ(result.err, "fscan: 1 file is gone since the search found it\n") << way[2];
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
            const Arguments arguments{"tree/", "--format", "{size}:{kind}:{path}"};
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
    for (const std::string path : {"way/", "way/a/..", "./way"})
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

// A cached size beside a new time would describe a file that never existed.
TEST_F(FactsTest, ALineIsOfOneMoment) {
    cached({"tree/"});
    add("tree/a/f", std::string(1000, 'x'));
    fs::permissions(tree_ / "tree/a/f", fs::perms::owner_read);
    EXPECT_THAT(cached({"tree/", "-l", "--bytes", "-n", "f", "--path", "a/f"}).out,
                testing::MatchesRegex("-r-------- +1000 .*tree/a/f\n"));
    for (const std::string command : {"ln -s nowhere", "mkdir", "true"}) {
        shell("rm -rf tree/a/f; " + command + " tree/a/f");
        const bool there = command.starts_with("ln");
        for (const auto& [way, told] :
             {std::pair("-l", "lrwxrwxrwx "), {"--json", "\"kind\":\"link\""}}) {
            const RunResult result = cached({"tree/", way, "--path", "a/f", "--max-age", "1d"});
            EXPECT_THAT(result.out, HasSubstr(there ? told : "")) << command;
            EXPECT_EQ(result.out.empty(), !there) << command;
            EXPECT_EQ(result.err.empty(), there) << result.err;
        }
    }
}

// ---- Commands ------------------------------------------------------------------

/// A command with the path, to be run in that way.
Arguments runningWay(CommandWay way, Arguments command) {
    const auto& [option, end] = way;
    command.insert(command.begin(), option);
    command.emplace_back("{}");
    command.emplace_back(end);
    return command;
}

TEST_F(FactsTest, CommandsDoNotFollowADirectoryThatBecameALink) {
    for (const CommandWay& way : kCommandWays) {
        add("tree/b/f", "text\n");
        cached({"tree/", "--fresh"});
        exchange("tree/a", "link");
        Arguments arguments = runningWay(way, {"rm", "-f"});
        arguments.insert(arguments.begin(),
                         {"tree/", "--max-age=1d", "--strict", "--summary-file", "s.json"});
        const RunResult result = cached(arguments);
        EXPECT_TRUE(fs::exists(outside_ / "f")) << way.first;
        EXPECT_FALSE(fs::exists(tree_ / "tree/b/f")) << way.first;
        EXPECT_EQ(result.err, "fscan: 1 file is gone since the search found it\n") << way.first;
        EXPECT_EQ(result.status, 3) << way.first;
        const auto summary = nlohmann::json::parse(fscanner::readWholeFile(tree_ / "s.json"));
        EXPECT_EQ(summary["gone"], 1);
        EXPECT_EQ(summary["matches"], 1) << "one that was left out is none";
        exchange("tree/a", "link");
    }
}

// Files change even right after the search: here by the commands themselves, while others
// wait for their turn.
TEST_F(FactsTest, EachPathIsLookedAtBeforeItsCommand) {
    fs::create_directory_symlink("tree", tree_ / "way");
    fs::create_directories(tree_ / "elsewhere/b");
    add("elsewhere/b/f");
    for (const auto& [path, exchange, told] :
         {std::tuple("tree/", "mv tree/b kept; ln -s ../elsewhere/b tree/b", "1 file is gone"),
          {"way/", "ln -sfn elsewhere way", "1 file has changed"},
          {"tree/", "rm tree/b/f; ln -s ../../elsewhere/b/f tree/b/f", "1 file has changed"},
          {"tree/", "rm tree/b/f; mkdir tree/b/f", "1 file is gone"}}) {
        const RunResult result =
            run({path, "-e", "sh", "-c", "echo $0; cd '" + tree_.path().string() + "'; " + exchange,
                 ";"});
        EXPECT_EQ(result.out, std::string(path) + "a/f\n") << exchange;
        EXPECT_THAT(result.err, HasSubstr(told)) << exchange;
        shell("rm -rf tree/b kept; mkdir tree/b; echo text > tree/b/f");
    }
}

TEST_F(FactsTest, ABatchIsLookedAtWhenTheOneBeforeIsOver) {
    for (int i = 0; i < 6000; ++i) add("many/" + std::to_string(i) + std::string(200, 'n'));
    fs::copy(tree_ / "many", tree_ / "copy");
    const RunResult result = run({"many/", "--exec-batch", "sh", "-c",
                                  "mv many moved; ln -s copy many; echo $#", "sh", "+"});
    EXPECT_EQ(records(result.out).size(), 1u) << result.out;
    const int left = 6000 - std::stoi(result.out);
    EXPECT_GT(left, 0);
    EXPECT_EQ(result.err,
              "fscan: " + std::to_string(left) +
                  " files have changed since the search found them, and were left out\n");
}

// A cache has old sizes and permissions. A command gets the file by its present ones.
TEST_F(FactsTest, CommandsAreForFilesThatStillFit) {
    const struct {
        Arguments condition;
        const char* change;
        bool stays = false;
    } table[] = {
        {{"--larger", "4"}, "truncate -s 1"},
        {{"--smaller", "10"}, "truncate -s 100"},
        {{"-w", "[SIZE] == 5"}, "truncate -s 6"},
        {{"-w", "([ATTR] & 8) == 0"}, "chmod u+x"},
        {{"--perm", "u+r"}, "chmod u-r"},
        {{"--perm", "r"}, "chmod a-r"},
        {{"-n", "f"}, "rm -f"},
        {{"-n", "f"}, "ln -sf /dev/null", true},
        {{"-n", "f"}, "truncate -s 100", true},
        {{"-w", "[SIZE] > 4"}, "truncate -s 100", true},
    };
    for (const auto& [condition, change, stays] : table) {
        shell("rm -f tree/a/f; echo text > tree/a/f; chmod 644 tree/a/f");
        cached({"tree/", "--fresh"});
        shell(std::string(change) + " tree/a/f");
        for (const CommandWay& way : kCommandWays) {
            Arguments arguments = runningWay(way, {"echo"});
            arguments.insert(arguments.begin(), {"tree/", "--path", "a/f"});
            arguments.insert(arguments.begin(), condition.begin(), condition.end());
            const RunResult result = cached(arguments);
            EXPECT_EQ(!result.out.empty(), stays) << change << result.err;
        }
    }
    // Permissions are read from the disk like times and owners, with commands or without.
    shell("rm -f tree/a/f; echo text > tree/a/f; chmod 644 tree/a/f");
    cached({"tree/", "--fresh"});
    shell("chmod u+x tree/a/f");
    EXPECT_EQ(cached({"tree/", "--perm", "u+x"}).out, "tree/a/f\n");
    EXPECT_EQ(run({"tree/", "--perm", "u+x"}).out, "tree/a/f\n");
    exchange("tree/a", "link");
    EXPECT_EQ(cached({"tree/", "--perm", "r", "--path", "a/f"}).out, "");
}

TEST_F(FactsTest, CommandsInTheDirectoryOfAFile) {
    const std::string top = fs::canonical(tree_.path());
    add("tree/-x/-n");
    add("run", "#!/bin/sh\necho ran $1\n");
    fs::permissions(tree_ / "run", fs::perms::owner_all);
    add("tree/b/run", "#!/bin/sh\necho hijacked\n");
    fs::permissions(tree_ / "tree/b/run", fs::perms::owner_all);
    EXPECT_EQ(run({"tree/", "--exec-dir", "sh", "-c", "echo $(pwd) $0", ";"}).out,
              top + "/tree/-x ./-n\n" + top + "/tree/a ./f\n" + top + "/tree/b ./f\n" + top +
                  "/tree/b ./run\n");
    EXPECT_EQ(run({"tree/b", "-n", "f", "--exec-dir", "./run", ";"}).out, "ran ./f\n");
    EXPECT_EQ(run({"tree/b", "-n", "run", "--exec-dir", "{}", ";"}).out, "hijacked\n");
    for (const char* path : {".:/bin", "/bin:", "/bin::/usr/bin", "bin:/bin"}) {
        const RunResult refused =
            shell("PATH=" + std::string(path) + " \"$0\" --no-cache tree --exec-dir echo ';'");
        EXPECT_EQ(refused.status, 2) << path;
        EXPECT_EQ(refused.out, "") << path;
        EXPECT_THAT(refused.err, HasSubstr("PATH has a directory that is not absolute")) << path;
    }
    // The opened directory is used, whatever has its name now.
    const RunResult moved =
        run({"tree/a", "--exec-dir", "sh", "-c",
             "mv ../a ../gone; ln -s '" + outside_.path().string() + "' ../a; rm \"$0\"", ";"});
    EXPECT_EQ(moved.status, 0) << moved.err;
    EXPECT_TRUE(fs::exists(outside_ / "f"));
    EXPECT_TRUE(fs::is_empty(tree_ / "tree/gone"));
    EXPECT_EQ(run({"tree/", "-e", "true", ";", "--exec-dir", "true", ";"}).status, 2);
    EXPECT_EQ(run({"tree/", "--exec-dir", "true"}).status, 2);
}

TEST_F(FactsTest, TimesHaveNoLastDay) {
    for (const char* day : {"2105-06-07", "1895-06-07"}) {
        EXPECT_EQ(shell(std::string("touch -d ") + day + " tree/a/f").status, 0);
        struct stat info {};
        ::stat((tree_ / "tree/a/f").c_str(), &info);
        if (info.st_mtime == static_cast<int>(info.st_mtime))
            continue;  // the disk cannot store that day
        const std::string side = day[0] == '2' ? "--newer=2038-01-20" : "--older=1901-01-01";
        for (const bool fromCache : {false, true})
            for (const Arguments& way :
                 {Arguments{"-l"}, Arguments{"-l", "--sort", "size"}, Arguments{"--json"},
                  Arguments{"-l", "--sort", "name", "--spill"}}) {
                Arguments arguments{"tree/", side};
                arguments.insert(arguments.end(), way.begin(), way.end());
                const RunResult result = fromCache ? cached(arguments) : run(arguments);
                EXPECT_THAT(result.out, HasSubstr(day)) << way.back();
                EXPECT_THAT(result.out, Not(HasSubstr("tree/b"))) << way.back();
            }
    }
}

}  // namespace
}  // namespace fscan::test
