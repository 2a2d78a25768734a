// Processes that die with the cache open: what the others get is the answer of one whole
// scan, and the death costs one rebuild at most.

#include <gmock/gmock.h>

#include <random>

#include "host.h"
#include "tracer.h"

namespace fscanner {
namespace {

// A session of everything that changes a cache: an old tree is removed and built anew,
// one below it too, and what was removed is compacted.
void churn(const FaultHost& host, std::mt19937& random, bool compressed) {
    for (;;) {
        const unsigned ages[] = {FaultHost::kNoAge, FaultHost::kAnyAge, 0};
        host.ask(ages[random() % std::size(ages)], random() % 2 ? L"" : L"[FILENAME]==\"name1.h\"",
                 compressed);
    }
}

class Killed : public testing::TestWithParam<bool> {
protected:
    Killed() { host.plant(12, 10); }

    // Renames a file, so that answers of different times differ.
    void change() {
        if (version) std::filesystem::remove(host.tree.path("v" + std::to_string(version)));
        host.tree.file("v" + std::to_string(++version));
        after = host.truth();
    }
    // Of the scan that is new, or of the last one.
    void expectWholeAnswers(const std::string& when) {
        const Answer first = host.ask(FaultHost::kAnyAge, L"", GetParam());
        EXPECT_EQ(first.status, 0) << when;
        EXPECT_TRUE(first.paths == before || first.paths == after)
            << when << ": " << first.paths.size() << " of " << after.size();
        const Answer second = host.ask(FaultHost::kAnyAge, L"", GetParam());
        EXPECT_EQ(second.walked, 0U) << when << ": rebuilt twice";
        EXPECT_EQ(second.paths, first.paths) << when;
        before = first.paths;
    }

    FaultHost host;
    int version = 0;
    std::vector<std::string> before;
    std::vector<std::string> after;
};

TEST_P(Killed, AtRandomMoments) {
    std::mt19937 random(GetParam() ? 5 : 6);
    const int kills = 50 * faultScale();
    int twice = 0;
    for (int i = 0; i < kills; ++i) {
        change();
        const auto seed = random();
        const auto work = [&] {
            std::mt19937 own(seed);
            churn(host, own, GetParam());
        };
        ASSERT_TRUE(killedAfter(below(random, 40000), work));
        // Some die again, in the rebuilding that follows.
        if (i % 8 == 0) {
            ASSERT_TRUE(killedAfter(below(random, 12000), work));
            ++twice;
        }
        expectWholeAnswers("kill " + std::to_string(i));
        if (HasFailure()) return;
    }
    RecordProperty("kills", kills + twice);
}

// Between any two system calls of a rebuild, an answer, and a compaction.
TEST_P(Killed, AtEverySystemCall) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    change();
    expectWholeAnswers("before");
    const auto session = [&] { return host.ask(FaultHost::kNoAge, L"", GetParam()).status; };
    const unsigned calls = Tracer().countCalls(session);
    ASSERT_GT(calls, 100U);
    const auto step = static_cast<unsigned>(std::max(1, 8 / faultScale()));
    for (unsigned at = 1; at <= calls; at += step) {
        change();
        Tracer().killAt(at, session);
        expectWholeAnswers("call " + std::to_string(at) + " of " + std::to_string(calls));
        if (HasFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, Killed, testing::Values(false, true),
                         [](const auto& form) { return form.param ? "Compressed" : "Fixed"; });

}  // namespace
}  // namespace fscanner
