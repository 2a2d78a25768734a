// Processes that die with the cache open: what the others get is the answer of one whole
// scan, and the death costs one rebuild at most.

#include <gmock/gmock.h>

#include "host.h"
#include "tracer.h"

namespace fscanner {
namespace {

class Killed : public testing::TestWithParam<bool> {
protected:
    Killed() { host.plant(12, 10); }

    // Renames a file, so that answers of different times differ.
    void change() {
        if (version) std::filesystem::remove(host.tree.path("v" + std::to_string(version)));
        host.tree.file("v" + std::to_string(++version));
        after = host.truth();
    }
    Answer ask(unsigned age) const { return host.ask(age, L"", GetParam()); }
    // Of the scan that is new, or of the last one.
    void expectWholeAnswers(const std::string& when) {
        const Answer first = ask(FaultHost::kAnyAge);
        EXPECT_EQ(first.status, 0) << when;
        EXPECT_TRUE(first.paths == before || first.paths == after)
            << when << ": " << first.paths.size() << " of " << after.size();
        const Answer second = ask(FaultHost::kAnyAge);
        EXPECT_EQ(second.walked, 0U) << when << ": rebuilt twice";
        EXPECT_EQ(second.paths, first.paths) << when;
        before = first.paths;
    }

    FaultHost host;
    int version = 0;
    std::vector<std::string> before;
    std::vector<std::string> after;
};

// Between any two system calls of a rebuild, an answer, and a compaction.
TEST_P(Killed, AtEverySystemCall) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    change();
    expectWholeAnswers("before");
    const auto session = [&] { return ask(FaultHost::kNoAge).status; };
    const unsigned calls = Tracer().countCalls(session);
    ASSERT_GT(calls, 100U);
    const auto step = static_cast<unsigned>(std::max(1, 8 / faultScale()));
    for (unsigned at = 1; at <= calls && !HasFailure(); at += step) {
        change();
        Tracer().killAt(at, session);
        expectWholeAnswers("call " + std::to_string(at) + " of " + std::to_string(calls));
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, Killed, testing::Values(false, true),
                         [](const auto& form) { return form.param ? "Compressed" : "Fixed"; });

}  // namespace
}  // namespace fscanner
