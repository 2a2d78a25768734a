// Many runs of fscan use one cache at once, in all ways, and some are
// killed. Each search that ends by itself gives the right answer.

#include <gmock/gmock.h>

#include <array>
#include <chrono>

#include "host.h"

namespace fscanner {
namespace {

using Clock = std::chrono::steady_clock;

// This many of ten runs do this; "PATH" stands for a random directory.
struct Kind {
    unsigned share;
    std::vector<std::string> arguments;
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
    ~Storm() override { killAll(); }
    void killAll() {
        for (OneRun& run : runs) {
            if (run.process == 0) continue;
            ::kill(run.process, SIGKILL);
            ::waitpid(std::exchange(run.process, 0), nullptr, 0);
        }
    }

    std::string fileOf(const OneRun& run, const char* what) const {
        return host.place.path(what + std::to_string(&run - runs.data()));
    }
    [[noreturn]] void become(const OneRun& run) const {
        std::vector<std::string> arguments = run.kind->arguments;
        std::replace(arguments.begin(), arguments.end(), std::string("PATH"), run.root);
        host.becomeFscan(arguments, fileOf(run, "output"), fileOf(run, "errors"));
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
        const bool all = run.kind->arguments.size() < 2 || run.kind->arguments[1] != "-n";
        std::vector<std::string> paths;
        for (const std::string& path : truth)
            if (path.starts_with(run.root + "/") && (all || path.ends_with(".h")))
                paths.push_back(path);
        return paths;
    }
    // A task may find nothing to do, or find the mark of a killed run.
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
        if (run.kind->arguments[0] != "PATH") {
            if (status != 0) {
                EXPECT_TRUE(isToldTaskEnd(status, said)) << status;
            }
            return;
        }
        EXPECT_EQ(status, 0);
        const auto lines = FaultHost::linesOf(fileOf(run, "output"));
        EXPECT_TRUE(lines == right(run)) << lines.size() << " lines for " << right(run).size();
    }
    // Reaps one that ended, and kills those whose time is over.
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
    // Whatever they left behind, the next run leaves a cache without any damage.
    killAll();
    for (const auto& last :
         {std::vector<std::string>{"--fresh", host.tree.path()}, {"--cache-check"}})
        EXPECT_EQ(
            inChild([&]() -> int { host.becomeFscan(last, host.place.path("last"), "/dev/null"); }),
            0)
            << readWholeFile(host.place.path("last"));
}

}  // namespace
}  // namespace fscanner
