// A session that changes one tree of a cache dies, or is stopped. The other trees still answer
// without a scan. So does that tree, or it is built once more.

#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "fscanner/engine/cache.h"
#include "fscanner/fs/fs_direct.h"
#include "host.h"
#include "tracer.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

/// Trees in one cache. On disk a finished tree has more files than in the cache, so that an answer
/// shows where it comes from.
class Undo : public testing::Test {
protected:
    Undo() {
        for (const char* name : {"a", "b", "c"}) plant(name, 8, 8);
        for (const char* name : {"a", "b"}) {
            answers[name] = ask(name).paths;
            host.tree.file(std::string(name) + "/later");
        }
        ask("c");
    }
    void plant(const std::string& name, int directories, int files) const {
        for (int i = 0; i < directories; ++i)
            for (int j = 0; j < files; ++j)
                host.tree.file(name + "/d" + std::to_string(i % 3) + "/e" + std::to_string(i) +
                               "/name" + std::to_string(j));
    }
    Answer ask(const std::vector<std::string>& names, unsigned age = kDay) const {
        FsQuery query;
        host.describeParts(query, names);
        return host.ask(query, age, compressed);
    }
    Answer ask(const std::string& name, unsigned age = kDay) const {
        return ask(std::vector{name}, age);
    }
    std::vector<std::string> truth(const std::string& name) const {
        return FaultHost::walkFresh(host.tree.path(name));
    }
    // The answers of trees whose session was over.
    void expectFinishedTrees(const std::string& when) const {
        for (const auto& [name, paths] : answers) {
            const Answer answer = ask(name);
            EXPECT_EQ(answer.status, 0) << when;
            EXPECT_EQ(answer.walked, 0U) << when << ": " << name << " was lost";
            EXPECT_TRUE(answer.paths == paths) << when << ": " << name;
        }
    }
    // The answer of the tree that a session was about to build.
    void expectWholeTree(const std::string& name, const std::string& when) const {
        const Answer answer = ask(name);
        EXPECT_EQ(answer.status, 0) << when;
        EXPECT_TRUE(answer.paths == truth(name)) << when << ": " << name;
        EXPECT_EQ(ask(name).walked, 0U) << when << ": built twice";
    }

    FaultHost host;
    bool compressed = false;
    std::map<std::string, std::vector<std::string>> answers;
};

// ---- At random moments -------------------------------------------------------

// Kills `session` after so many microseconds. True when it was still running.
template <class Session>
bool killAfter(long microseconds, Session session) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(session());
    std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFSIGNALED(status);
}

TEST_F(Undo, KilledAtRandomMoments) {
    plant("c", 60, 30);
    ask("c", kAllOld);
    std::mt19937 random(3);
    const auto start = std::chrono::steady_clock::now();
    expectWholeTree("c", "before");
    ask("c", kAllOld);
    const long whole = std::chrono::duration_cast<std::chrono::microseconds>(
                           std::chrono::steady_clock::now() - start)
                           .count();
    int killed = 0;
    const int rounds = 40 * faultScale();
    for (int i = 0; i < rounds && !HasFailure(); ++i) {
        // An old tree, a part of one, a new one, and all that there are.
        const std::string fresh = "new" + std::to_string(i);
        if (i % 4 == 2) plant(fresh, 30, 30);
        const char* const kinds[] = {"c", "c/d1", fresh.c_str(), "c"};
        const std::string target = kinds[i % 4];
        killed += killAfter(below(random, static_cast<unsigned>(whole)),
                            [&] { return ask(target, kAllOld).status; });
        const std::string when = std::to_string(i) + ": " + target;
        expectFinishedTrees(when);
        expectWholeTree(target, when);
    }
    EXPECT_GT(killed, rounds / 4);
}

// ---- At every system call ----------------------------------------------------

struct Session {
    const char* name;
    std::vector<std::string> trees;  // to be built
    bool alone;                      // whether the tree is the only one in its cache
    int before;                      // sessions that leave removed records
    bool compressed = false;
};

const Session kSessions[] = {
    {"Refreshed", {"c"}, false, 0}, {"Compacted", {"c"}, false, 1},
    {"Anew", {"c"}, true, 0},       {"AnewInCompressed", {"c"}, true, 1, true},
    {"Two", {"c", "n"}, false, 0},
};

class UndoAtCalls : public Undo, public testing::WithParamInterface<Session> {
protected:
    // An only tree differs each time, so that a mixture of two would show.
    void prepare() {
        compressed = GetParam().compressed;
        if (GetParam().alone) host.forget();
        if (GetParam().alone) ask("c");
        for (int i = 0; i < GetParam().before; ++i) ask("c", kAllOld);
        if (!GetParam().alone) return;
        before = truth("c");
        const auto file = [this] { return host.tree.path("c/version" + std::to_string(version)); };
        fs::remove(file());
        ++version;
        writeWholeFile(file(), "");
    }
    int act() const { return ask(GetParam().trees, kAllOld).status; }
    void check(const std::string& when) {
        if (GetParam().alone) {
            const Answer answer = ask("c");
            EXPECT_EQ(answer.status, 0) << when;
            EXPECT_EQ(answer.walked, 0U) << when << ": it was lost";
            EXPECT_THAT(answer.paths, testing::AnyOf(before, truth("c"))) << when;
            return;
        }
        expectFinishedTrees(when);
        for (const std::string& name : GetParam().trees) expectWholeTree(name, when);
    }

    int version = 0;
    std::vector<std::string> before;
};

// A session may also die while the next one undoes or finishes its changes.
TEST_P(UndoAtCalls, TheOtherTreesStay) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    plant("n", 4, 4);
    prepare();
    const auto session = [this] { return act(); };
    const unsigned calls = Tracer().countCalls(session);
    const auto step = static_cast<unsigned>(std::max(1, 12 / faultScale()));
    for (unsigned at = 1; at <= calls && !HasFailure(); at += step) {
        prepare();
        Tracer().killAt(at, session);
        Tracer().killAt(at % 97 + 1, [this] { return ask("a").status; });
        check("call " + std::to_string(at) + " of " + std::to_string(calls));
    }
}

INSTANTIATE_TEST_SUITE_P(Killed, UndoAtCalls, testing::ValuesIn(kSessions),
                         [](const auto& form) { return form.param.name; });

// ---- Ends inside a process ---------------------------------------------------

TEST_F(Undo, StoppedOrTimedOut) {
    plant("c", 6, 1000);
    ask("c", kAllOld);
    for (int at = 0; at <= 4; ++at) {
        FsQuery query;
        host.describeParts(query, {"c"});
        CollectingWriter ignored;
        int status = 0;
        {
            const Listener stopping(at == 0 ? 1000 : at);
            status = host.provider()->executeQuery(ignored, query, kAllOld, at == 0 ? 0 : kMinute);
        }
        EXPECT_EQ(status, FS_CACHE_BUILD_TIMED_OUT) << at;
        expectFinishedTrees(std::to_string(at));
        EXPECT_EQ(ask("c").walked, 0U) << "the old tree is there";
        expectWholeTree("c", std::to_string(at));
        // A scan without a cache is stopped as well.
        const Listener stopping(at == 0 ? 1000 : at);
        status = fsScanQuery(ignored, query, at == 0 ? 0 : kMinute);
        EXPECT_EQ(status, FS_CACHE_QUERY_TIMED_OUT) << at;
    }
}

// Trees that the same query had finished stay, too.
TEST_F(Undo, StopsAtTheSecondTreeOfAQuery) {
    plant("m", 3, 3);
    plant("n", 4, 1000);
    FsQuery query;
    host.describeParts(query, {"m", "n"});
    for (const bool first : {false, true}) {
        if (first) host.forget();
        CollectingWriter ignored;
        {
            const Listener stopping(2);
            EXPECT_EQ(host.provider()->executeQuery(ignored, query, kDay, kMinute),
                      FS_CACHE_BUILD_TIMED_OUT);
        }
        if (!first) expectFinishedTrees("stopped");
        EXPECT_EQ(ask("m").walked, 0U) << first;
        expectWholeTree("m", "stopped");
        expectWholeTree("n", "stopped");
    }
}

TEST_F(Undo, DiskIsFull) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    plant("n", 200, 20);
    for (const std::string target : {"c", "n"}) {
        unsigned calls = 0;
        for (unsigned at = 1; at == 1 || at <= calls; ++at) {
            unsigned seen = 0;
            Tracer().run([&] { return ask(target, kAllOld).status; },
                         [&](const TracedCall& call) {
                             if (call.group() != "fallocate") return 0;
                             return ++seen >= at && at < 40 ? ENOSPC : 0;
                         });
            calls = std::max(calls, std::min(seen, 39U));
            expectFinishedTrees("full at " + std::to_string(at));
        }
        EXPECT_GT(calls, 3U);
        expectWholeTree(target, "no longer full");
    }
}

// ---- Journals that are of no use ---------------------------------------------

// Then only the mark counts: everything is built anew.
TEST_F(Undo, IsNotTriedWithAnotherJournal) {
    if (!Tracer::available()) GTEST_SKIP() << "this process may trace no other";
    const std::string journal = host.place.path("journal");
    for (const bool link : {false, true}) {
        // While the tree is being written.
        Tracer().run(
            [this] { return ask("c", kAllOld).status; },
            [](const TracedCall& call) { return call.group() == "getdents" ? Tracer::kKill : 0; });
        for (const auto& entry : fs::directory_iterator(host.cache)) {
            if (entry.path().extension() != ".undo") continue;
            fs::rename(entry.path(), journal);
            if (link) fs::create_symlink(journal, entry.path());
        }
        for (const char* name : {"a", "b", "c"}) {
            EXPECT_GT(ask(name).walked, 0U) << link;
            expectWholeTree(name, "without its journal");
        }
    }
}

}  // namespace
}  // namespace fscanner
