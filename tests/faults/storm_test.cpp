// Many runs of fscan on one cache at once, of all that one can do with it, and some are
// killed: each search that ends by itself tells the truth.

#include <fcntl.h>
#include <gmock/gmock.h>

#include <array>
#include <chrono>

#include "build_paths.h"
#include "host.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using namespace std::literals;

// Of ten runs so many do this; "PATH" stands for a random directory.
struct Kind {
    unsigned share;
    std::vector<const char*> arguments;
};
const Kind kKinds[] = {
    {4, {"PATH"}},
    {1, {"PATH", "--max-age", "0s", "--spill", "--sort", "name"}},
    {1, {"PATH", "--fresh"}},
    {1, {"PATH", "-n", "*.h"}},
    {1, {"--cache-forget", "PATH"}},
    {1, {"--cache-compact"}},
    {1, {"--cache-clear"}},
};
constexpr unsigned kShares = 10;

struct OneRun {
    pid_t process = 0;
    const Kind* kind = nullptr;
    std::string root;
    Clock::time_point killedAt = Clock::time_point::max();
};

class Storm : public testing::Test {
protected:
    Storm() {
        host.plant(9, 40);
        truth = host.truth();
    }
    ~Storm() override {
        for (const OneRun& run : runs)
            if (run.process != 0) {
                ::kill(run.process, SIGKILL);
                ::waitpid(run.process, nullptr, 0);
            }
    }

    std::string fileOf(const OneRun& run, const char* what) const {
        return host.place.path(what + std::to_string(&run - runs.data()));
    }
    [[noreturn]] void become(const OneRun& run) const {
        ::setenv("XDG_CACHE_HOME", host.place.path("home").c_str(), 1);
        ::setenv("LC_ALL", "C.UTF-8", 1);
        ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        const int flags = O_WRONLY | O_CREAT | O_TRUNC;
        ::dup2(::open(fileOf(run, "output").c_str(), flags, 0600), 1);
        ::dup2(::open(fileOf(run, "errors").c_str(), flags, 0600), 2);
        std::vector<const char*> arguments = {"fscan"};
        for (const char* argument : run.kind->arguments)
            arguments.push_back(argument == std::string_view("PATH") ? run.root.c_str() : argument);
        arguments.push_back(nullptr);
        ::execv(FSCAN_PROGRAM, const_cast<char* const*>(arguments.data()));
        ::_exit(127);
    }
    void start(OneRun& run) {
        static const char* const parts[] = {"", "d0", "d1", "d2", "d0/e3", "d1/e4/f0"};
        run.root = host.tree.path(parts[below(random, std::size(parts))]);
        unsigned share = below(random, kShares);
        for (run.kind = kKinds; share >= run.kind->share; ++run.kind) share -= run.kind->share;
        run.killedAt = Clock::time_point::max();
        if (below(random, 3) == 0)
            run.killedAt = Clock::now() + std::chrono::microseconds(below(random, 60000));
        run.process = ::fork();
        if (run.process == 0) become(run);
    }
    std::vector<std::string> right(const OneRun& run) const {
        const bool all = run.kind->arguments.size() < 2 || run.kind->arguments[1] != "-n"sv;
        std::vector<std::string> paths;
        for (const std::string& path : truth)
            if (path.starts_with(run.root + "/") && (all || path.ends_with(".h")))
                paths.push_back(path);
        return paths;
    }
    // A task may find nothing to do, or the mark that a killed run left.
    static bool isToldTaskEnd(int status, const std::string& said) {
        if (!WIFEXITED(status)) return false;
        const bool marked =
            said.ends_with(": the cache is marked or damaged; the next search makes it anew\n");
        return WEXITSTATUS(status) == 1 || (WEXITSTATUS(status) == 4 && marked);
    }
    void judge(const OneRun& run, int status) {
        if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) {
            ++kills;
            return;
        }
        ++answers;
        const std::string said = readWholeFile(fileOf(run, "errors"));
        SCOPED_TRACE(testing::PrintToString(run.kind->arguments) + run.root + "\n" + said);
        if (run.kind->arguments[0] != "PATH"sv) {
            if (status != 0) {
                EXPECT_TRUE(isToldTaskEnd(status, said)) << status;
            }
            return;
        }
        EXPECT_EQ(status, 0);
        std::vector<std::string> lines;
        std::ifstream file(fileOf(run, "output"));
        for (std::string line; std::getline(file, line);) lines.push_back(line);
        std::sort(lines.begin(), lines.end());
        EXPECT_TRUE(lines == right(run)) << lines.size() << " lines for " << right(run).size();
    }
    // Takes one that ended and kills those whose time has come.
    void look() {
        for (OneRun& run : runs) {
            if (run.process == 0) continue;
            if (Clock::now() >= run.killedAt) ::kill(run.process, SIGKILL);
            int status = 0;
            if (::waitpid(run.process, &status, WNOHANG) != run.process) continue;
            run.process = 0;
            judge(run, status);
        }
    }

    FaultHost host;
    std::vector<std::string> truth;
    std::array<OneRun, 8> runs;
    std::mt19937 random{23};
    int answers = 0;
    int kills = 0;
};

TEST_F(Storm, LeavesEveryAnswerRight) {
    const int wanted = 150 * faultScale();
    while (answers < wanted && !HasFailure()) {
        for (OneRun& run : runs)
            if (run.process == 0) start(run);
        ::usleep(500);
        look();
    }
    std::printf("%d answers, %d kills\n", answers, kills);
    EXPECT_GT(kills, 0);
}

}  // namespace
}  // namespace fscanner
