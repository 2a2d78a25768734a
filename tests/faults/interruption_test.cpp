// fscan gets a signal at any of its system calls. It leaves nothing behind, and the next search
// is right.

#include <gmock/gmock.h>

#include <chrono>

#include "build_paths.h"
#include "host.h"
#include "support/private_mounts.h"
#include "tracer.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

struct Run {
    const char* name;
    std::vector<std::string> arguments;
    bool warm;
    bool changed = false;
};

const Run kRuns[] = {
    {"First", {}, false},
    {"Again", {}, true},
    {"Changed", {}, true, true},
    {"Fresh", {"--fresh"}, true},
    {"Sorted", {"--sort", "name", "--spill"}, true},
    {"Uncached", {"--no-cache", "-l"}, true},
    {"Logged", {"--fresh", "--sort", "size", "--spill", "--debug-log", "log"}, true},
    {"Compacted", {"--cache-compact"}, true},
};

class Signals : public testing::TestWithParam<Run> {
protected:
    Signals() { host.plant(5, 5); }

    [[noreturn]] void becomeFscan(std::vector<std::string> arguments) const {
        const bool task = !arguments.empty() && arguments[0].starts_with("--cache-");
        if (!task) arguments.push_back(host.tree.path());
        host.becomeFscan(arguments, host.place.path("output"), "/dev/null");
    }
    int runFscan(const std::vector<std::string>& arguments) const {
        return inChild([&]() -> int { becomeFscan(arguments); });
    }

    // Runs in a process with its own /tmp, which hides programs that lie there. Returns 0 if all
    // went well.
    int interruptEverywhere() const {
        if (std::string_view(FSCAN_PROGRAM).starts_with("/tmp/")) return kNotAllowed;
        if (!mountMemory("none", "/tmp")) return kNotAllowed;
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
        if (runFscan({}) != 0) return 4;
        if (FaultHost::linesOf(host.place.path("output")) != host.truth()) return 6;
        if (!leftNothing(signal)) return 5;
        for (const fs::directory_entry& entry : fs::directory_iterator("/tmp")) fs::remove(entry);
        return 0;
    }
    // A killed process cannot remove the name of its lock. The next process takes that.
    static bool leftNothing(int signal) {
        const fs::directory_iterator all("/tmp");
        return std::all_of(begin(all), end(all), [signal](const fs::directory_entry& entry) {
            return signal == SIGKILL && entry.path().native().ends_with("_mutex");
        });
    }
    void prepare() const {
        if (GetParam().changed)
            host.askBeforeChanges([this] { runFscan({}); });
        else if (GetParam().warm)
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

}  // namespace
}  // namespace fscanner
