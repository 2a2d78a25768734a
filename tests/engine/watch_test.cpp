// A cache that is kept current by what a monitor tells, and the searches that ask for it.

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "build_paths.h"
#include "engine/verified_cache.h"
#include "fscanner/engine/tree_changes.h"
#include "fscanner/engine/watch_client.h"
#include "fscanner/engine/watch_protocol.h"
#include "fscanner/engine/watch_server.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_events.h"
#include "fscanner/fs/fs_loader.h"
#include "support/child_process.h"
#include "support/environment.h"
#include "support/running_watch.h"

namespace fscanner {
namespace {

using testing::ElementsAre;

// ---- What events mean -------------------------------------------------------

TEST(ChangeSet, NamesTheDirectoriesThatEventsConcern) {
    using C = ChangedDirectory;
    const struct {
        const wchar_t* path;
        unsigned action;
        std::vector<C> changes;
    } table[] = {
        {L"/t/a/f", FS_EVENT_CREATED, {{L"/t/a", C::names}}},
        {L"/t/a/f", FS_EVENT_DELETED | FS_EVENT_WRITTEN, {{L"/t/a", C::names | C::facts}}},
        {L"/t/a/f", FS_EVENT_ATTRIBUTES, {{L"/t/a", C::facts}}},
        {L"/t/d", FS_EVENT_DELETED | FS_EVENT_DIRECTORY, {{L"/t", C::names}}},
        {L"/t/d", FS_EVENT_CREATED | FS_EVENT_DIRECTORY, {{L"/t", C::names}, {L"/t/d", C::below}}},
        {L"/t/d", FS_EVENT_ATTRIBUTES | FS_EVENT_DIRECTORY, {{L"/t/d", C::below}}},
        {L"/f", FS_EVENT_CREATED, {}},  // in "/"
        {L"relative", FS_EVENT_CREATED, {}},
    };
    for (const auto& row : table) {
        ChangeSet set;
        set.add(FS_Event(row.path, row.action));
        EXPECT_EQ(set.within(L"/t"), row.changes) << toMultibyte(row.path) << " " << row.action;
    }
    ChangeSet set;
    for (const wchar_t* path : {L"/t/b", L"/t/b-c/x", L"/t/b/c", L"/ta"}) set.add(path, C::names);
    set.add(L"/t", C::below);
    EXPECT_THAT(set.within(L"/t/b"),
                ElementsAre(C{L"/t/b", C::names | C::below}, C{L"/t/b/c", C::names}));
}

TEST(WatchProtocol, MessagesComeBackAndDamagedOnesDoNot) {
    const WatchQuestion question{L"dirs", L"/a/\xDC80 \x1F600", {1, 2, 3}};
    const std::optional<TreeChanges> answer =
        TreeChanges{false, {{L"/a/b", ChangedDirectory::names}, {L"/a/c", 6}}};
    const std::string asked = encode(question).substr(kLengthBytes);
    const std::string answered = encode(answer).substr(kLengthBytes);
    WatchQuestion question2;
    std::optional<TreeChanges> answer2;
    ASSERT_TRUE(decode(asked, question2));
    EXPECT_EQ(question2.path, question.path);
    EXPECT_EQ(question2.place, question.place);
    ASSERT_TRUE(decode(answered, answer2));
    ASSERT_TRUE(answer2);
    EXPECT_EQ(answer2->directories, answer->directories);
    EXPECT_TRUE(decode(encode(std::optional<TreeChanges>()).substr(kLengthBytes), answer2));
    EXPECT_FALSE(answer2);
    EXPECT_FALSE(decode(answered, question2) || decode(asked, answer2));
    for (std::size_t length = 0; length < asked.size(); ++length)
        EXPECT_FALSE(decode(asked.substr(0, length), question2)) << length;
    for (std::size_t length = 0; length < answered.size(); ++length)
        EXPECT_FALSE(decode(answered.substr(0, length), answer2)) << length;
    EXPECT_FALSE(decode(asked + "x", question2) || decode(answered + "x", answer2));
    std::mt19937 random(3);
    for (int i = 0; i < 20'000; ++i) {
        std::string damaged = i % 2 == 0 ? asked : answered;
        for (auto n = 1 + random() % 3; n > 0; --n)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        if (decode(damaged, question2)) {
            EXPECT_TRUE(question2.path.starts_with(L'/'));
        }
        if (!decode(damaged, answer2) || !answer2) continue;
        for (const auto& one : answer2->directories) EXPECT_TRUE(one.path.starts_with(L'/'));
    }
    EXPECT_EQ(encode(WatchQuestion{L"dirs", std::wstring(kLongestQuestion, L'/'), {}}), "");
}

// ---- A watch and its searches -----------------------------------------------

/// Tells what a test says.
class ScriptedMonitor : public FsMonitor {
public:
    ~ScriptedMonitor() override { ::close(signal_); }
    const char* name() const override { return "scripted"; }
    int watch(const wchar_t* path, std::wstring& problem) override {
        const bool refused = refuses || path == refusedPath;
        problem = refused ? L"not today" : L"";
        (refused ? refusals : watched).emplace_back(path);
        if (const auto happens = std::exchange(duringWatch, nullptr)) happens();
        return refused ? EPERM : 0;
    }
    int descriptor() const override { return signal_; }
    int take(FS_Queue& queue) override {
        const std::lock_guard guard(guard_);
        std::uint64_t count = 0;
        (void)!::read(signal_, &count, sizeof count);
        const auto taken = static_cast<int>(events_.size());
        queue.sendAll(std::exchange(events_, {}));
        return std::exchange(fails_, false) ? -EIO : taken;
    }
    void tell(const std::wstring& path, unsigned action) {
        const std::lock_guard guard(guard_);
        events_.emplace_back(path.c_str(), action);
        ring();
    }
    void fail() {
        const std::lock_guard guard(guard_);
        fails_ = true;
        ring();
    }

    std::atomic<bool> refuses = false;
    std::wstring refusedPath;
    std::function<void()> duringWatch;  // once
    std::vector<std::wstring> watched, refusals;

private:
    void ring() const {
        const std::uint64_t one = 1;
        EXPECT_EQ(::write(signal_, &one, sizeof one), 8);
    }

    std::mutex guard_;
    std::list<FS_Event> events_;
    bool fails_ = false;
    int signal_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
};

/// Counts the answers that a watcher gave.
class WatchChecks : public FsScanObserver {
public:
    WatchChecks() : previous_(fsSetScanObserver(this)) {}
    ~WatchChecks() override { fsSetScanObserver(previous_); }
    void verified(const FsVerification& one) override {
        ++(one.watched ? watched : unwatched);
        looked = one.directories;
        storedFacts = one.storedFacts;
    }
    void clear() { watched = unwatched = 0; }

    unsigned watched = 0, unwatched = 0;
    unsigned long long looked = 0;
    bool storedFacts = false;

private:
    FsScanObserver* previous_;
};

class WatchedTree : public VerifiedCache {
protected:
    void start() {
        watch.emplace(place.wide("cache"), tree.wide(), monitor);
        ASSERT_EQ(watch->status, 0);
        ASSERT_TRUE(watch->waitUntilCurrent());
    }
    /// The names of an answer that a watcher has to give.
    Answer watchedNames(const std::string& below = "") {
        checks.clear();
        const Answer found = names(below);
        EXPECT_EQ(checks.watched, 1U) << below;
        return found;
    }
    Answer sized(const wchar_t* criteria, unsigned age = kDay) const {
        Answer found;
        for (const std::string& one : ask(queryFor("", criteria), age).sized)
            found.insert(one.substr(tree.path().size() + 1));
        return found;
    }
    void tell(const std::string& below, unsigned action) { monitor.tell(tree.wide(below), action); }

    WatchChecks checks;
    ScriptedMonitor monitor;
    std::optional<RunningWatch> watch;
};

TEST_P(WatchedTree, LooksWhereTheMonitorSaysAndNowhereElse) {
    for (const char* one : {"a/f", "a/b/g", "c/h"}) tree.file(one);
    start();
    EXPECT_EQ(monitor.watched, std::vector{tree.wide()});
    EXPECT_EQ(watchedNames(), (Answer{"a/f", "a/b/g", "c/h"}));
    EXPECT_EQ(checks.looked, 0U);
    // What it does not know shows that no directory was looked at.
    tree.file("a/b/new");
    EXPECT_EQ(watchedNames(), (Answer{"a/f", "a/b/g", "c/h"}));
    tell("a/b/new", FS_EVENT_CREATED);
    EXPECT_EQ(watchedNames(), (Answer{"a/f", "a/b/g", "a/b/new", "c/h"}));
    EXPECT_EQ(checks.looked, 1U);
    ASSERT_TRUE(watch->waitFor([](const FsWatchReport& one) { return one.updates >= 2; }));
    EXPECT_EQ(watchedNames(), (Answer{"a/f", "a/b/g", "a/b/new", "c/h"}));
    EXPECT_EQ(checks.looked, 0U) << "it is in the cache now";
    // A part of the tree.
    fs::remove(tree.path("a/f"));
    fs::remove(tree.path("c/h"));
    tell("a/f", FS_EVENT_DELETED);
    EXPECT_EQ(watchedNames("a/b"), (Answer{"a/b/g", "a/b/new"}));
    EXPECT_EQ(checks.looked, 0U) << "the change lies elsewhere";
    EXPECT_EQ(watchedNames("a"), (Answer{"a/b/g", "a/b/new"}));
    // A directory in the place of another: all below it is looked at.
    tree.file("other/b/x");
    fs::rename(tree.path("a"), tree.path("away"));
    fs::rename(tree.path("other"), tree.path("a"));
    tell("a", FS_EVENT_MOVED_TO | FS_EVENT_DIRECTORY);
    EXPECT_EQ(watchedNames("a/b"), Answer{"a/b/x"});
    EXPECT_EQ(watchedNames(), (Answer{"a/b/x", "away/b/g", "away/b/new", "c/h"}));
    // A directory that the cache does not know, and one that is gone again.
    tree.file("n/m/x");
    tell("n/m/x", FS_EVENT_CREATED);
    tell("gone/y", FS_EVENT_CREATED);
    EXPECT_EQ(watchedNames(), (Answer{"a/b/x", "away/b/g", "away/b/new", "c/h", "n/m/x"}));
}

TEST_P(WatchedTree, SizesAreAsOldAsTheTreeButForThoseThatItTells) {
    tree.file("a/small", 10);
    tree.file("a/large", 1000);
    start();
    tree.file("a/large", 5);
    tree.file("a/small", 700);
    tell("a/large", FS_EVENT_WRITTEN);
    EXPECT_EQ(sized(L"[SIZE]<100"), Answer{"a/large 5"});
    EXPECT_EQ(sized(L"[SIZE]>100"), Answer{"a/small 700"});
    EXPECT_EQ(checks.watched, 2U);
    EXPECT_TRUE(checks.storedFacts) << "another link of a file may have been written";
    tree.file("a/large", 900);
    EXPECT_EQ(sized(L"[SIZE]>800", kAllOld), Answer{"a/large 900"});
    // Names do not depend on it.
    EXPECT_EQ(watchedNames(), (Answer{"a/small", "a/large"}));
}

/// Whatever goes wrong with the watch, the answers are right.
TEST_P(WatchedTree, FallsBackToVerification) {
    tree.file("a/f");
    start();
    Answer expected{"a/f"};
    int files = 0;
    const struct {
        const char* what;
        std::function<void()> happens;
    } table[] = {
        {"an overflow", [&] { monitor.tell(L"", FS_EVENT_OVERFLOW); }},
        {"an overflow in this tree", [&] { tell("", FS_EVENT_OVERFLOW); }},
        {"the monitor fails", [&] { monitor.fail(); }},
        {"the watch of the tree ended", [&] { tell("", FS_EVENT_UNWATCHED); }},
        {"a directory above came",
         [&] {
             monitor.tell(fs::path(tree.wide()).parent_path().wstring(),
                          FS_EVENT_MOVED_TO | FS_EVENT_DIRECTORY);
         }},
        {"another cache in its place", [&] { fs::remove_all(place.path("cache")); }},
        {"more than a list is worth",
         [&] {
             for (std::size_t i = 0; i < ChangeSet::kMost + 10; ++i)
                 tell("d" + std::to_string(i) + "/f", FS_EVENT_CREATED);
         }},
    };
    for (const auto& row : table) {
        const std::string file = "a/" + std::to_string(++files);
        tree.file(file);  // nobody tells of it
        expected.insert(file);
        row.happens();
        EXPECT_EQ(names(), expected) << row.what;
        ASSERT_TRUE(watch->waitUntilCurrent()) << row.what;
        EXPECT_EQ(names(), expected) << row.what;
    }
}

/// What a search finds in the place of a tree, or where others have mounted something, goes into
/// the cache. The monitor tells nothing of it.
TEST_P(WatchedTree, IsNotCurrentAfterASearchSawSomethingElse) {
    tree.file("a/f");
    TempTree other{fs::path(tree.path()).parent_path()};
    other.file("other");
    const std::string away = tree.path() + ".away";
    const auto exchange = [&] {
        fs::rename(tree.path(), away);
        fs::rename(other.path(), tree.path());
    };
    const auto restore = [&] {
        fs::rename(tree.path(), other.path());
        fs::rename(away, tree.path());
    };
    const Answer expected{"a/f"};
    start();
    monitor.duringWatch = exchange;
    tell("", FS_EVENT_UNWATCHED);
    ASSERT_TRUE(watch->waitFor([](const FsWatchReport& one) { return one.losses > 0; }));
    ASSERT_TRUE(watch->waitUntilCurrent());
    EXPECT_EQ(monitor.watched.size(), 3U) << "it was another directory when the watch began";
    restore();
    EXPECT_EQ(names(), expected);
    ASSERT_TRUE(watch->waitUntilCurrent());
    const std::unique_ptr<FsProvider> unchecked{createProvider(nullptr)};
    unchecked->setOption(FS_OPTION_CACHE_DIRECTORY, place.path("cache").c_str());
    const struct {
        const char* what;
        std::function<void()> search;
    } table[] = {
        {"a search that asks the watch", [&] { EXPECT_EQ(names(), Answer{"other"}); }},
        {"a search that does not",
         [&] {
             SizedWriter writer;
             EXPECT_EQ(unchecked->executeQuery(writer, queryFor("", nullptr), 0, kMinute), 0);
             EXPECT_EQ(writer.paths, Answer{tree.path("other")});
         }},
    };
    for (const auto& row : table) {
        exchange();
        row.search();
        restore();
        EXPECT_EQ(names(), expected) << row.what;
        ASSERT_TRUE(watch->waitUntilCurrent()) << row.what;
        EXPECT_EQ(watchedNames(), expected) << row.what;
    }
    withPrivateMounts([&] {
        if (!mountMemory("tmpfs", tree.path("a"))) return kNotAllowed;
        tree.file("a/theirs");
        return names() == Answer{"a/theirs"} ? 0 : 1;
    });
    EXPECT_EQ(names(), expected);
}

TEST_P(WatchedTree, LooksAtDirectoriesThatCannotBeWatchedEachTime) {
    for (const char* one : {"a/f", "closed/b/g"}) tree.file(one);
    start();
    tell("closed", FS_EVENT_UNWATCHED | FS_EVENT_DIRECTORY);
    EXPECT_EQ(watchedNames(), (Answer{"a/f", "closed/b/g"}));
    EXPECT_EQ(checks.looked, 2U);
    for (const char* one : {"1", "2"}) {
        tree.file(std::string("closed/b/") + one);
        EXPECT_TRUE(watchedNames().contains(std::string("closed/b/") + one));
        EXPECT_EQ(watchedNames("a"), Answer{"a/f"});
        EXPECT_EQ(checks.looked, 0U);
        wait();
    }
}

/// Others may make directories that cannot be read as they like.
TEST_P(WatchedTree, IsGivenUpForAWhileWhereTooMuchCannotBeWatched) {
    tree.file("a/f");
    start();
    for (int i = 0; i < 2000; ++i)
        tell("closed" + std::to_string(i), FS_EVENT_UNWATCHED | FS_EVENT_DIRECTORY);
    tree.file("a/g");
    checks.clear();
    EXPECT_EQ(names(), (Answer{"a/f", "a/g"}));
    EXPECT_EQ(checks.watched, 0U);
    const auto paused = watch->pause();
    EXPECT_EQ(monitor.watched.size(), 1U);
}

/// A tree that cannot be watched is tried again now and then, whatever happens in others.
TEST_P(WatchedTree, IsNoMatterToThoseThatCannotBeWatched) {
    tree.file("a/f");
    TempTree refused;
    monitor.refusedPath = refused.wide();
    const auto begin = std::chrono::steady_clock::now();
    watch.emplace(place.wide("cache"), std::vector{tree.wide(), refused.wide()}, monitor);
    for (unsigned updates = 1; updates < 6; ++updates) {
        ASSERT_TRUE(
            watch->waitFor([&](const FsWatchReport& one) { return one.updates >= updates; }));
        tree.file("a/" + std::to_string(updates));
        tell("a/x", FS_EVENT_CREATED);
    }
    const auto seconds = (std::chrono::steady_clock::now() - begin) / std::chrono::seconds(1);
    const auto paused = watch->pause();
    EXPECT_LE(std::ssize(monitor.refusals), 2 + seconds);
}

TEST_P(WatchedTree, IsNotWaitedForForLong) {
    tree.file("a/f");
    start();
    tree.file("a/g");
    const auto paused = watch->pause();
    checks.clear();
    EXPECT_EQ(names(), (Answer{"a/f", "a/g"}));
    EXPECT_EQ(checks.watched, 0U);
}

TEST_P(WatchedTree, OthersAndOtherCachesAreTurnedAway) {
    tree.file("a/f");
    start();
    RunningWatch second(place.wide("cache"), tree.wide(), monitor);
    EXPECT_EQ(second.status, FS_CACHE_LOCK_TIMED_OUT);
    ScriptedMonitor refusing;
    refusing.refuses = true;
    EXPECT_EQ(RunningWatch(place.wide("another"), tree.wide(), refusing).status, FS_CACHE_UNUSABLE);
    const std::wstring table = fsCacheTableNames(false).directories;
    const auto known = [&](const std::wstring& name, const std::string& path) {
        return WatchClient(place.wide("cache"), name).changesIn(toWide(path).c_str()).has_value();
    };
    EXPECT_TRUE(known(table, tree.path()));
    EXPECT_TRUE(known(table, tree.path("a")));
    EXPECT_FALSE(known(L"other", tree.path()));
    EXPECT_FALSE(known(table, fs::path(tree.path()).parent_path()));
    EXPECT_FALSE(known(table, tree.path("none")));
    // The same tree by another mount: events name the paths of the first one.
    withPrivateMounts([&] {
        tree.directory("m");
        if (::mount(tree.path("a").c_str(), tree.path("m").c_str(), nullptr, MS_BIND, nullptr) != 0)
            return kNotAllowed;
        return known(table, tree.path("m")) ? 1 : 0;
    });
    EXPECT_TRUE(known(table, tree.path()));
}

/// Sends bytes to a watcher and closes.
void sendTo(const std::wstring& directory, const std::string& bytes) {
    const Descriptor socket = connectTo(directory, kWatchSocketName);
    ASSERT_TRUE(socket);
    ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
}

TEST_P(WatchedTree, BadQuestionsDoNoHarm) {
    tree.file("a/f");
    start();
    const std::wstring cache = place.wide("cache");
    const std::string good = encode(WatchQuestion{L"t", tree.wide(), {1, 2, 3}});
    for (const std::string& bytes :
         {std::string(), std::string("x"), std::string(4, '\0'), std::string(4, '\xFF'),
          good.substr(0, 20), good + good, std::string(100'000, 'x')})
        sendTo(cache, bytes);
    std::vector<Descriptor> silent;
    for (int i = 0; i < 200; ++i) silent.push_back(connectTo(cache, kWatchSocketName));
    EXPECT_EQ(names(), Answer{"a/f"});
    silent.clear();
    // It has to turn them all away first.
    const auto answers = [&](const FsWatchReport&) {
        return WatchClient(cache, fsCacheTableNames(false).directories)
            .changesIn(tree.wide().c_str())
            .has_value();
    };
    EXPECT_TRUE(watch->waitFor(answers));
    EXPECT_EQ(watchedNames(), Answer{"a/f"});
}

/// A process that gives bad answers in the place of a watcher.
TEST_P(WatchedTree, BadAnswersAreNotBelieved) {
    tree.file("a/f");
    wait();
    names();
    tree.file("a/g");
    const std::wstring cache = place.wide("cache");
    const auto listener = listenAt(cache, kWatchSocketName);
    ASSERT_TRUE(listener);
    const auto known = [](const std::wstring& path) {
        return encode(std::optional(TreeChanges{false, {{path, ChangedDirectory::names}}}));
    };
    for (const std::string& bytes :
         {std::string(), std::string("xxxx"), known(tree.wide()).substr(0, 30), known(L"/etc"),
          known(L"a/b"), std::string(4, '\xFF'), std::string(4, '\0') + known(tree.wide())}) {
        std::thread server([&] {
            pollfd poll{listener.get(), POLLIN, 0};
            ::poll(&poll, 1, 5000);
            const Descriptor client(::accept(listener.get(), nullptr, nullptr));
            char question = 0;
            (void)!::recv(client.get(), &question, 1, 0);
            ::send(client.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        });
        EXPECT_FALSE(WatchClient(cache, L"dirs").changesIn(tree.wide().c_str())) << bytes;
        server.join();
    }
}

/// One that is slow to answer each question of a search is asked no more when that took too long.
TEST_P(WatchedTree, TakesTheTimeOfASearchOnce) {
    fs::create_directories(place.path("cache"));
    const auto listener = listenAt(place.wide("cache"), kWatchSocketName);
    std::thread server([&] {
        for (int i = 0; i < 3; ++i) {
            const std::string answer = encode(std::optional(TreeChanges()));
            pollfd poll{listener.get(), POLLIN, 0};
            ::poll(&poll, 1, 10'000);
            const Descriptor client(::accept(listener.get(), nullptr, nullptr));
            std::this_thread::sleep_for(std::chrono::milliseconds(i == 0 ? 100 : 1100));
            ::send(client.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
        }
    });
    WatchClient client(place.wide("cache"), L"dirs");
    EXPECT_TRUE(client.changesIn(tree.wide().c_str()));
    client.changesIn(tree.wide().c_str());
    EXPECT_FALSE(client.changesIn(tree.wide().c_str()));
    EXPECT_FALSE(client.changesIn(tree.wide().c_str())) << "nobody listens";
    server.join();
}

/// Without room for a client the server waits to be asked again, and does not wake its host.
TEST(WatchServer, IsQuietWhileItCanTakeNobody) {
    const TempTree place;
    WatchServer server([](const WatchQuestion&) { return TreeChanges(); });
    ASSERT_TRUE(server.open(place.wide()));
    pollfd wakes{server.descriptor(), POLLIN, 0};
    const Descriptor client = connectTo(place.wide(), kWatchSocketName);
    const std::string question = encode(WatchQuestion{L"t", L"/", {1, 2, 3}});
    ASSERT_EQ(::send(client.get(), question.data(), question.size(), 0), std::ssize(question));
    EXPECT_EQ(::poll(&wakes, 1, 0), 1);
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_FALSE(server.step());
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(::poll(&wakes, 1, 0), 0);
    EXPECT_TRUE(server.step());
    EXPECT_EQ(::poll(&wakes, 1, 0), 1) << "it has been asked";
    EXPECT_TRUE(server.step());
    char answer = 0;
    EXPECT_EQ(::recv(client.get(), &answer, 1, MSG_DONTWAIT), 1);
}

// ---- Real monitors ----------------------------------------------------------

/// The histories of verified answers, while a monitor watches: the last word of a setting's name.
class WatchedHistory : public VerifiedCache {
protected:
    std::string monitorName() const {
        const std::string name = GetParam().name;
        return "monitor_" + name.substr(name.rfind('_') + 1);
    }
    /// Null where this user cannot use it.
    std::unique_ptr<FsMonitor> loadMonitor() const {
        if (monitorName() == "monitor_fanotify" && ::geteuid() != 0) return nullptr;
        EnvironmentVariable configuration{"FSCANNER_CONFIG"};
        configuration.set(FSCANNER_PLUGINS "/fscanner.conf");
        const FsConfig_TAV config;
        std::unique_ptr<FsMonitor> monitor(FsLoader::loadFsMonitor(monitorName().c_str(), &config));
        EXPECT_NE(monitor, nullptr);
        return monitor;
    }
    void run() {
        const bool mounts = enterPrivateMounts();
        const std::unique_ptr<FsMonitor> monitor = loadMonitor();
        if (!monitor) return;
        WatchChecks checks;
        {
            const RunningWatch watch(place.wide("cache"), tree.wide(), *monitor);
            ASSERT_EQ(watch.status, 0);
            ASSERT_TRUE(watch.waitUntilCurrent());
            runHistory(mounts);
            EXPECT_GT(watch.report().answers, 0U);
        }
        names();
        checks.clear();
        names();
        EXPECT_EQ(checks.watched, 0U) << "nobody watches any more";
        EXPECT_EQ(checks.unwatched, 1U);
    }
};

/// What the watch does to the cache is no reason to change it again.
TEST_P(WatchedHistory, OfATreeThatHoldsTheCacheComesToAnEnd) {
    const std::unique_ptr<FsMonitor> monitor = loadMonitor();
    if (!monitor) GTEST_SKIP() << "fanotify needs root";
    const std::string cache = tree.path("cache");
    provider->setOption(FS_OPTION_CACHE_DIRECTORY, cache.c_str());
    tree.file("a/f");
    const RunningWatch watch(toWide(cache), tree.wide(), *monitor);
    ASSERT_TRUE(watch.waitUntilCurrent());
    tree.file("a/g");
    ASSERT_TRUE(watch.waitFor([](const FsWatchReport& one) { return one.updates >= 2; }));
    for (int i = 0; i < 3; ++i) wait();
    EXPECT_EQ(ask(queryFor("", nullptr)).paths, scan(queryFor("", nullptr)).paths);
    const auto before = timesIn(cache);
    for (int i = 0; i < 10; ++i) wait();
    EXPECT_EQ(ask(queryFor("", nullptr)).paths, scan(queryFor("", nullptr)).paths);
    EXPECT_EQ(timesIn(cache), before);
    EXPECT_LE(watch.report().updates, 3U);
}

/// No event tells of what lies below a mount point, and none of the mount table that it moves.
TEST_P(WatchedHistory, AMountPointMovesWithItsDirectory) {
    if (monitorName() == "monitor_fanotify" && ::geteuid() != 0)
        GTEST_SKIP() << "fanotify needs root";
    withPrivateMounts([this] {
        if (!mountMemory("tmpfs", tree.path("a/point"))) return kNotAllowed;
        const std::unique_ptr<FsMonitor> monitor = loadMonitor();
        const RunningWatch watch(place.wide("cache"), tree.wide(), *monitor);
        EXPECT_TRUE(watch.waitUntilCurrent());
        const unsigned long long updates = watch.report().updates;
        fs::rename(tree.path("a"), tree.path("b"));
        EXPECT_TRUE(
            watch.waitFor([updates](const FsWatchReport& one) { return one.updates > updates; }));
        wait();
        tree.file("b/point/f");
        EXPECT_EQ(ask(queryFor("", nullptr)).paths, scan(queryFor("", nullptr)).paths);
        return HasFailure() ? 1 : 0;
    });
}

/// A scan stops at a drive, and crosses a part of the same one, of which no event tells by this
/// path.
TEST_P(WatchedHistory, AMountOfAnotherKindTakesThePlaceOfOne) {
    if (monitorName() == "monitor_fanotify" && ::geteuid() != 0)
        GTEST_SKIP() << "fanotify needs root";
    withPrivateMounts([this] {
        tree.file("a/f");
        const std::string point = tree.path("point");
        if (!mountMemory("tmpfs", point)) return kNotAllowed;
        const std::unique_ptr<FsMonitor> monitor = loadMonitor();
        const RunningWatch watch(place.wide("cache"), tree.wide(), *monitor);
        EXPECT_TRUE(watch.waitUntilCurrent());
        {
            const auto paused = watch.pause();
            EXPECT_EQ(::umount(point.c_str()), 0);
            EXPECT_EQ(::mount(tree.path("a").c_str(), point.c_str(), nullptr, MS_BIND, nullptr), 0);
        }
        for (const char* file : {"a/1", "a/2"}) {
            EXPECT_EQ(ask(queryFor("", nullptr)).paths, scan(queryFor("", nullptr)).paths);
            EXPECT_TRUE(watch.waitUntilCurrent());
            wait();
            tree.file(file);
        }
        EXPECT_EQ(ask(queryFor("", nullptr)).paths, scan(queryFor("", nullptr)).paths);
        return HasFailure() ? 1 : 0;
    });
}

TEST_P(WatchedHistory, GivesTheAnswersOfAScan) {
    if (monitorName() == "monitor_fanotify" && ::geteuid() != 0)
        GTEST_SKIP() << "fanotify needs root";
    const int failed = inChild([this] {
        run();
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(failed, 0) << "-1: it crashed";
}

INSTANTIATE_TEST_SUITE_P(Places, WatchedHistory,
                         testing::Values(Setting{"disk_fanotify", false, 0},
                                         Setting{"memory_fanotify", true, 0},
                                         Setting{"disk_inotify", false, 0},
                                         Setting{"memory_inotify", true, 0}),
                         [](const auto& setting) { return setting.param.name; });

INSTANTIATE_TEST_SUITE_P(Places, WatchedTree,
                         testing::Values(Setting{"disk", false, 0}, Setting{"memory", true, 0}),
                         [](const auto& setting) { return setting.param.name; });

}  // namespace
}  // namespace fscanner
