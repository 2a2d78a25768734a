// The end comes from outside: fscan gets a signal at any of its system calls, or the host's
// observer says stop. Nothing is left, and the next search is right.

#include <fcntl.h>
#include <gmock/gmock.h>

#include <chrono>

#include "build_paths.h"
#include "fscanner/engine/cache.h"
#include "fscanner/fs/fs_direct.h"
#include "host.h"
#include "support/private_mounts.h"
#include "tracer.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

// ---- fscan and signals ---------------------------------------------------------

struct Run {
    const char* name;
    std::vector<const char*> arguments;
    bool warm;
};

const Run kRuns[] = {
    {"First", {}, false},
    {"Again", {}, true},
    {"Fresh", {"--fresh"}, true},
    {"Sorted", {"--sort", "name", "--spill"}, true},
    {"Uncached", {"--no-cache", "-l"}, true},
    {"Logged", {"--fresh", "--sort", "size", "--spill", "--debug-log", "log"}, true},
    {"Compacted", {"--cache-compact"}, true},
};

class Signals : public testing::TestWithParam<Run> {
protected:
    Signals() { host.plant(5, 5); }

    // Becomes fscan, with what it prints in a file.
    [[noreturn]] void becomeFscan(const std::vector<const char*>& more) const {
        ::setenv("XDG_CACHE_HOME", host.place.path("home").c_str(), 1);
        ::setenv("LC_ALL", "C.UTF-8", 1);
        ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
        ::dup2(::open(host.place.path("output").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
        ::dup2(::open("/dev/null", O_WRONLY), 2);
        const std::string tree = host.tree.path();
        std::vector<const char*> arguments = {"fscan"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const bool task = !more.empty() && std::string_view(more[0]).starts_with("--cache-");
        if (!task) arguments.push_back(tree.c_str());
        arguments.push_back(nullptr);
        if (::chdir(host.place.path().c_str()) != 0) ::_exit(126);
        ::execv(FSCAN_PROGRAM, const_cast<char* const*>(arguments.data()));
        ::_exit(127);
    }
    int runFscan(const std::vector<const char*>& arguments) const {
        return inChild([&]() -> int { becomeFscan(arguments); });
    }
    std::vector<std::string> output() const {
        std::vector<std::string> lines;
        std::ifstream file(host.place.path("output"));
        for (std::string line; std::getline(file, line);) lines.push_back(line);
        std::sort(lines.begin(), lines.end());
        return lines;
    }

    // In a process whose /tmp is its own, which hides a program that lies there. 0 when all went
    // well.
    int interruptEverywhere() const {
        if (std::string_view(FSCAN_PROGRAM).starts_with("/tmp/")) return notAllowed;
        if (!mountMemory("none", "/tmp")) return notAllowed;
        prepare();
        const auto& arguments = GetParam().arguments;
        const auto body = [&]() -> int { becomeFscan(arguments); };
        const unsigned calls = Tracer().countCalls(body);
        const unsigned step = static_cast<unsigned>(std::max(1, 40 / faultScale()));
        std::fprintf(stderr, "%u of %u calls\n", (calls + step - 1) / step, calls);
        for (unsigned at = 1; at <= calls; at += step) {
            prepare();
            const int signal = std::array{SIGINT, SIGTERM, SIGKILL}[at % 3];
            if (const int failed = interruptAt(at, signal, body)) {
                std::fprintf(stderr, "call %u of %u, signal %d: %d\n", at, calls, signal, failed);
                return failed;
            }
        }
        return 0;
    }
    int interruptAt(unsigned at, int signal, const Tracer::Body& body) const {
        const auto start = std::chrono::steady_clock::now();
        unsigned seen = 0;
        const int status = Tracer().run(
            body, [&](const TracedCall&) { return ++seen == at ? Tracer::signalNow(signal) : 0; });
        if (std::chrono::steady_clock::now() - start > std::chrono::seconds(8)) return 1;
        if (status != 0 && status != -signal) return 2;
        if (!leftNothing(signal)) return 3;
        if (runFscan({}) != 0 || output() != host.truth()) return 4;
        if (!leftNothing(signal)) return 5;
        for (const fs::directory_entry& entry : fs::directory_iterator("/tmp")) fs::remove(entry);
        return 0;
    }
    // A process that is killed cannot remove the name of a lock, which the next one takes.
    static bool leftNothing(int signal) {
        const fs::directory_iterator all("/tmp");
        return std::all_of(begin(all), end(all), [signal](const fs::directory_entry& entry) {
            return signal == SIGKILL && entry.path().native().ends_with("_mutex");
        });
    }
    void prepare() const {
        if (GetParam().warm)
            runFscan({});
        else
            fs::remove_all(host.place.path("home"));
    }

    FaultHost host;
};

TEST_P(Signals, AtAnySystemCallLeaveNothing) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    withPrivateMounts([this] { return interruptEverywhere(); });
}

INSTANTIATE_TEST_SUITE_P(During, Signals, testing::ValuesIn(kRuns),
                         [](const auto& form) { return form.param.name; });

// ---- The observer --------------------------------------------------------------

// Progress is told once in 1024 entries: every one of them is a place to stop.
TEST(ObserverStop, IsACodeAndCostsOneRebuild) {
    FaultHost host;
    host.plant(4, 1500);
    const std::vector<std::string> truth = host.truth();
    FsQuery query;
    host.describe(query);
    for (const bool warm : {false, true}) {
        for (int at = 1; at <= 6; ++at) {
            host.forget();
            if (warm) host.ask();
            const unsigned age = warm ? kAllOld : kDay;
            CollectingWriter ignored;
            {
                const Listener stopping(at);
                const int status = host.provider()->executeQuery(ignored, query, age, kMinute);
                EXPECT_EQ(status, at <= 5 ? FS_CACHE_BUILD_TIMED_OUT : 0) << at;
            }
            {
                const Listener stopping(at);
                const int status = fsScanQuery(ignored, query, kMinute);
                EXPECT_EQ(status, stopping.questions >= at ? FS_CACHE_QUERY_TIMED_OUT : 0) << at;
            }
            const Answer next = host.ask();
            EXPECT_EQ(next.status, 0) << at;
            EXPECT_EQ(next.paths, truth) << at;
            EXPECT_EQ(host.ask().walked, 0U) << at;
        }
    }
}

}  // namespace
}  // namespace fscanner
