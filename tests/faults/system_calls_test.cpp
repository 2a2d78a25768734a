// Every system call of a search fails, once or from then on. A loss is reported, nothing
// stays behind, and the next search is right.

#include <gmock/gmock.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>

#include "fscanner/fs/fs_direct.h"
#include "host.h"
#include "tracer.h"

namespace fscanner {
namespace {

constexpr unsigned long kMarker = 0x66736361;

// Results of a child, as its exit status.
enum Outcome : int {
    kWhole = 10,
    kTold,
    kSilentlyWrong,
    kLeakedDescriptor,
    kThrown,
    kNextIsWrong,
};

// Calls fail only between these two.
void arm(bool on) {
    ::syscall(SYS_prctl, kMarker, on ? 1L : 0L, 0L, 0L, 0L);
}

// How an answer may differ without a report, by its contract, when something fails.
enum class Lesser {
    none,
    empty,  // of results in a file: their reader has no status
    some,   // of file types: unknown where `file` fails, which only the log reports
};

struct Scenario {
    const char* name;
    Lesser lesser;
    void (*prepare)(const FaultHost&);
    Answer (*act)(const FaultHost&);
    bool verifies = false;
};

// Searching and reading are tested separately: calls do not fail while results are read.
Answer searchToFile(const FaultHost& host, unsigned sortKey) {
    Answer answer;
    const auto reader = host.askForFile(answer.status, sortKey);
    arm(false);
    if (!reader) answer.status = -1;
    if (reader) answer.paths = FaultHost::pathsOf(*reader);
    std::sort(answer.paths.begin(), answer.paths.end());
    return answer;
}

Answer scanDirectly(const FaultHost& host) {
    FsQuery query;
    host.describe(query);
    CollectingWriter writer;
    Answer answer;
    answer.status = fsScanQuery(writer, query, kMinute);
    answer.paths = writer.sorted();
    return answer;
}

Answer scanForTypes(const FaultHost& host) {
    return host.ask(kDay, L"type(path([PATHID],[FILENAME]),\"text empty short\")");
}

const std::vector<Scenario>& scenarios() {
    static const auto cold = [](const FaultHost& host) { host.forget(); };
    static const auto warm = [](const FaultHost& host) { host.ask(); };
    static const auto changed = [](const FaultHost& host) {
        host.askBeforeChanges([&host] { host.ask(); });
    };
    static const std::vector<Scenario> table = {
        {"First", Lesser::none, cold, [](const FaultHost& host) { return host.ask(); }},
        {"Again", Lesser::none, warm, [](const FaultHost& host) { return host.ask(); }},
        {"Rebuilt", Lesser::none, warm, [](const FaultHost& host) { return host.ask(kAllOld); }},
        {"Verified", Lesser::none, changed, [](const FaultHost& host) { return host.ask(); }, true},
        {"Direct", Lesser::none, warm, scanDirectly},
        {"File", Lesser::empty, warm, [](const FaultHost& host) { return searchToFile(host, 0); }},
        {"Sorted", Lesser::empty, warm,
         [](const FaultHost& host) { return searchToFile(host, FS_SORT_NAME); }},
        {"Types", Lesser::some, warm, scanForTypes},
    };
    return table;
}

struct Failure {
    std::string_view group;
    int error;
};

const std::vector<Failure>& failures() {
    static const std::vector<Failure> table = {
        {"open", EIO},        {"open", EMFILE},   {"open", EINTR},      {"stat", EIO},
        {"stat", EINTR},      {"read", EIO},      {"read", EINTR},      {"write", ENOSPC},
        {"write", EINTR},     {"fallocate", EIO}, {"fallocate", EINTR}, {"ftruncate", EIO},
        {"ftruncate", EINTR}, {"mmap", ENOMEM},   {"mremap", ENOMEM},   {"fsync", EIO},
        {"fsync", EINTR},     {"lock", ENOLCK},   {"lock", EINTR},      {"unlink", EIO},
        {"rename", EIO},      {"getdents", EIO},  {"readlink", EIO},    {"mkdir", EACCES},
        {"spawn", EAGAIN},
    };
    return table;
}

class FailingCalls : public testing::TestWithParam<std::size_t> {
protected:
    FailingCalls() {
        host.plant(5, 4);
        host.verifies = scenario().verifies;
        right = host.truth();
    }
    const Scenario& scenario() const { return scenarios()[GetParam()]; }

    bool isAllowed(const std::vector<std::string>& paths) const {
        if (scenario().lesser == Lesser::empty) return paths.empty();
        return scenario().lesser == Lesser::some && paths != right &&
               std::includes(right.begin(), right.end(), paths.begin(), paths.end());
    }

    // In the child.
    int act() const {
        const std::set<int> before = openDescriptors();
        Answer answer;
        try {
            arm(true);
            const Listener heard;
            answer = scenario().act(host);
            arm(false);
            answer.toldOfGaps = answer.toldOfGaps || heard.toldOfGaps();
        } catch (...) {
            arm(false);
            return kThrown;
        }
        if (openDescriptors() != before) return kLeakedDescriptor;
        const bool said = !answer.claimsToBeWhole() || isAllowed(answer.paths);
        if (!said && answer.paths != right) return kSilentlyWrong;
        const Answer next = scenario().act(host);
        if (next.status != 0 || next.paths != right) return kNextIsWrong;
        return said ? kTold : kWhole;
    }

    // The sanitizers themselves need these.
    static bool isTheirs(const Failure& failure) {
        const auto groups = {"mmap", "mremap", "write", "spawn"};
        return std::find(groups.begin(), groups.end(), failure.group) != groups.end();
    }

    // A call that a signal interrupts is made again.
    static bool isRepeated(const Failure& failure) {
        return failure.error == EINTR && failure.group == "open";
    }

    // Fails one call of a group, the `at`th, or all from there on.
    int fail(const Failure& failure, unsigned at, bool onward, unsigned* calls = nullptr) const {
        bool armed = false;
        unsigned seen = 0;
        const int status =
            Tracer().run([this] { return act(); },
                         [&](const TracedCall& call) {
                             if (call.number == SYS_prctl && call.arguments[0] == kMarker) {
                                 armed = call.arguments[1] != 0;
                             } else if (armed && call.group() == failure.group) {
                                 ++seen;
                                 if (seen == at || (onward && seen > at)) return failure.error;
                             }
                             return 0;
                         });
        if (calls) *calls = seen;
        return status;
    }
    void check(const Failure& failure, unsigned at, bool onward) {
        const std::string name = std::string(failure.group) + " " + std::to_string(at) +
                                 (onward ? " and later: " : ": ") + std::strerror(failure.error);
        scenario().prepare(host);
        const int outcome = fail(failure, at, onward);
        EXPECT_THAT(outcome, testing::AnyOf(+kWhole, +kTold)) << name;
        if (isRepeated(failure)) {
            EXPECT_EQ(outcome, kWhole) << name;
        }
        // A file that cannot be removed stays, and so does one that may be another's.
        if (failure.group != "unlink" && !(failure.group == "stat" && onward)) {
            EXPECT_THAT(host.leftovers(), testing::IsEmpty()) << name;
        }
        for (const std::string& path : host.leftovers()) std::filesystem::remove(path);
        const Answer next = host.ask();
        EXPECT_EQ(next.status, 0) << name;
        EXPECT_EQ(next.paths, right) << name;
    }

    FaultHost host;
    std::vector<std::string> right;
};

TEST_P(FailingCalls, AreSaidAndLeaveNothing) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    // Starting programs takes time.
    const int usualStep = kSanitized || scenario().lesser == Lesser::some ? 40 : 6;
    const auto step = static_cast<unsigned>(std::max(1, usualStep / faultScale()));
    for (const Failure& failure : failures()) {
        if (kSanitized && isTheirs(failure)) continue;
        scenario().prepare(host);
        unsigned calls = 0;
        ASSERT_EQ(fail(failure, 0, false, &calls), kWhole);
        for (unsigned at = 1; at <= calls; at += at < 4 ? 1 : step) {
            check(failure, at, false);
            // A call that is interrupted every time is repeated for ever.
            if (failure.error != EINTR) check(failure, at, true);
        }
    }
}

// The mark says that a cache is not complete. A process that cannot look for the mark must not
// trust the cache.
TEST(FailingStat, OfTheMarkDoesNotHideIt) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    const FaultHost host;
    host.plant(2, 2);
    for (const bool all : {false, true}) {
        host.forget();
        EXPECT_EQ(host.ask().status, 0);
        for (const auto& entry : std::filesystem::directory_iterator(host.cache)) {
            std::filesystem::path mark = entry.path();
            if (mark.extension() == ".counter")
                writeWholeFile(mark.replace_extension(".cuflag"), "");
        }
        host.tree.file(all ? "later" : "new");
        const auto right = host.truth();
        unsigned failures = 0;
        const int status = Tracer().run([&] { return host.ask().paths == right ? 0 : 1; },
                                        [&](const TracedCall& call) {
                                            const bool looks = call.group() == "stat" &&
                                                               call.path(1).ends_with(".cuflag");
                                            if (!looks || (failures > 0 && !all)) return 0;
                                            ++failures;
                                            return EIO;
                                        });
        EXPECT_EQ(status, 0) << "the cache was trusted";
        EXPECT_GT(failures, 0u);
        EXPECT_EQ(host.ask().paths, right);
    }
}

INSTANTIATE_TEST_SUITE_P(Of, FailingCalls, testing::Range(std::size_t{0}, scenarios().size()),
                         [](const auto& form) { return scenarios()[form.param].name; });

}  // namespace
}  // namespace fscanner
