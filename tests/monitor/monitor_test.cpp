// Both monitors, as hosts load them, watching real trees: the same scenarios for each.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sched.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <thread>

#include "build_paths.h"
#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_events.h"
#include "fscanner/fs/fs_loader.h"
#include "fscanner/fs/fs_provider.h"
#include "support/child_process.h"
#include "support/environment.h"
#include "support/private_mounts.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;
using Events = std::vector<std::pair<std::string, unsigned>>;

constexpr unsigned kArrival = FS_EVENT_CREATED | FS_EVENT_MOVED_TO;

/// A loaded monitor with its queue.
class Monitor {
public:
    explicit Monitor(const std::string& name) {
        FsConfig_TAV config;
        monitor_.reset(FsLoader::loadFsMonitor(name.c_str(), &config));
    }
    explicit operator bool() const { return monitor_ != nullptr; }
    FsMonitor& operator*() const { return *monitor_; }
    int watch(const std::string& path) { return monitor_->watch(toWide(path).c_str(), problem); }
    std::string explained() const { return toMultibyte(problem); }
    bool readable() const {
        pollfd waiting{monitor_->descriptor(), POLLIN, 0};
        return ::poll(&waiting, 1, 0) == 1;
    }
    /// Whether nothing is left to be taken. Others who use a file system that is watched as a whole
    /// wake its monitor, which has nothing to tell of them.
    bool comesToRest() {
        const bool ofAll = monitor_->name() == std::string("monitor_fanotify");
        for (int tries = 0; ofAll && tries < 1000 && readable(); ++tries)
            if (!take().empty()) return false;
        return !readable();
    }
    Events take() {
        EXPECT_GE(monitor_->take(queue_), 0);
        Events events;
        for (const FS_Event& event : queue_.takeAll())
            events.emplace_back(toMultibyte(event.getEntry()), event.getAction());
        return events;
    }

    std::wstring problem;

private:
    std::unique_ptr<FsMonitor> monitor_;
    FS_Queue queue_{"monitor_test"};
};

bool tells(const Events& events, const std::string& path, unsigned action) {
    unsigned told = 0;
    for (const auto& [where, what] : events)
        if (where == path) told |= what;
    return (told & action) == action;
}

bool liesIn(const std::string& path, const std::string& directory) {
    return path == directory || path.starts_with(directory + "/");
}

class Monitors : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        if (GetParam() == std::string("monitor_fanotify") && ::geteuid() != 0)
            GTEST_SKIP() << "only root may watch a file system";
        home.set(FSCANNER_PLUGINS "/fscanner.conf");
        monitor = std::make_unique<Monitor>(GetParam());
        ASSERT_TRUE(*monitor);
        fs::create_directories(tree);
        fs::create_directories(outside);
    }
    void watch() { ASSERT_EQ(monitor->watch(tree), 0) << monitor->explained(); }
    std::string in(const std::string& name) const { return tree + "/" + name; }

    EnvironmentVariable home{"FSCANNER_CONFIG"};
    TemporaryDirectory place{"/tmp"};
    std::string tree = place / "tree";
    std::string outside = place / "outside";
    std::unique_ptr<Monitor> monitor;
};

void touch(const std::string& path) {
    writeWholeFile(path, "x");
}

TEST_P(Monitors, TellEachKindOfChange) {
    for (const char* directory : {"d", "e", "moved", "gone/below"})
        fs::create_directories(in(directory));
    for (const char* file : {"f", "g", "out", "old", "over", "linked", "x", "y"}) touch(in(file));
    touch(outside + "/f");
    fs::create_directories(outside + "/in/deep");
    watch();
    EXPECT_TRUE(monitor->comesToRest());
    const struct {
        std::string name;
        std::function<void()> change;
        Events expected;
    } cases[] = {
        {"create", [&] { touch(in("new")); }, {{"new", FS_EVENT_CREATED | FS_EVENT_WRITTEN}}},
        {"write", [&] { touch(in("f")); }, {{"f", FS_EVENT_WRITTEN}}},
        {"chmod", [&] { ::chmod(in("f").c_str(), 0600); }, {{"f", FS_EVENT_ATTRIBUTES}}},
        {"chmod of a directory",
         [&] { ::chmod(in("d").c_str(), 0700); },
         {{"d", FS_EVENT_ATTRIBUTES | FS_EVENT_DIRECTORY}}},
        {"unlink", [&] { fs::remove(in("g")); }, {{"g", FS_EVENT_DELETED}}},
        {"link",
         [&] { fs::create_hard_link(in("linked"), in("d/l")); },
         {{"d/l", FS_EVENT_CREATED}}},
        {"symlink", [&] { fs::create_symlink("nowhere", in("s")); }, {{"s", FS_EVENT_CREATED}}},
        {"odd bytes",
         [&] { touch(in("\xff\xc3\n (deleted)")); },
         {{"\xff\xc3\n (deleted)", FS_EVENT_CREATED}}},
        {"odd directory",
         [&] { fs::create_directory(in("\xfe (deleted)")); },
         {{"\xfe (deleted)", FS_EVENT_CREATED | FS_EVENT_DIRECTORY}}},
        {"in an odd directory",
         [&] { touch(in("\xfe (deleted)/f")); },
         {{"\xfe (deleted)/f", FS_EVENT_CREATED}}},
        {"rename",
         [&] { fs::rename(in("old"), in("e/name")); },
         {{"old", FS_EVENT_MOVED_FROM}, {"e/name", FS_EVENT_MOVED_TO}}},
        {"rename over",
         [&] { fs::rename(in("f"), in("over")); },
         {{"f", FS_EVENT_MOVED_FROM}, {"over", FS_EVENT_MOVED_TO}}},
        {"exchange",
         [&] {
             ::renameat2(AT_FDCWD, in("x").c_str(), AT_FDCWD, in("y").c_str(), RENAME_EXCHANGE);
         },
         {{"x", FS_EVENT_MOVED_FROM | FS_EVENT_MOVED_TO},
          {"y", FS_EVENT_MOVED_FROM | FS_EVENT_MOVED_TO}}},
        {"out", [&] { fs::rename(in("out"), outside + "/out"); }, {{"out", FS_EVENT_MOVED_FROM}}},
        {"in", [&] { fs::rename(outside + "/f", in("in")); }, {{"in", FS_EVENT_MOVED_TO}}},
        {"directory in",
         [&] { fs::rename(outside + "/in", in("came")); },
         {{"came", FS_EVENT_MOVED_TO | FS_EVENT_DIRECTORY}}},
        {"below what came", [&] { touch(in("came/deep/f")); }, {{"came/deep/f", FS_EVENT_CREATED}}},
        {"directory renamed",
         [&] { fs::rename(in("moved"), in("e/moved")); },
         {{"moved", FS_EVENT_MOVED_FROM | FS_EVENT_DIRECTORY},
          {"e/moved", FS_EVENT_MOVED_TO | FS_EVENT_DIRECTORY}}},
        {"below the new name", [&] { touch(in("e/moved/f")); }, {{"e/moved/f", FS_EVENT_CREATED}}},
        {"its parent renamed",
         [&] { fs::rename(in("e"), in("e2")); },
         {{"e2", FS_EVENT_MOVED_TO | FS_EVENT_DIRECTORY}}},
        {"below its new parent",
         [&] { touch(in("e2/moved/g")); },
         {{"e2/moved/g", FS_EVENT_CREATED}}},
        {"tree removed",
         [&] { fs::remove_all(in("gone")); },
         {{"gone", FS_EVENT_DELETED | FS_EVENT_DIRECTORY}}},
        {"directory out",
         [&] { fs::rename(in("came"), outside + "/came"); },
         {{"came", FS_EVENT_MOVED_FROM | FS_EVENT_DIRECTORY}}},
    };
    for (const auto& [name, change, expected] : cases) {
        change();
        EXPECT_TRUE(monitor->readable()) << name;
        const Events events = monitor->take();
        for (const auto& [path, action] : expected)
            EXPECT_TRUE(tells(events, in(path), action))
                << name << ": " << path << " in " << testing::PrintToString(events);
        for (const auto& [path, action] : events) EXPECT_TRUE(liesIn(path, tree)) << name << path;
    }
    touch(outside + "/came/deep/g");
    EXPECT_EQ(monitor->take(), Events()) << "of a directory that has left";
    EXPECT_TRUE(monitor->comesToRest());
}

TEST_P(Monitors, ChangesBelowNewDirectoriesAreNotMissed) {
    watch();
    fs::create_directories(in("a/b/c/d"));
    EXPECT_TRUE(tells(monitor->take(), in("a"), FS_EVENT_CREATED | FS_EVENT_DIRECTORY));
    touch(in("a/b/c/d/f"));
    EXPECT_TRUE(tells(monitor->take(), in("a/b/c/d/f"), FS_EVENT_CREATED));
    // A chain of names before the next look: the child's move is read after that of its parent.
    fs::rename(in("a/b"), in("a/b2"));
    fs::rename(in("a"), in("a2"));
    fs::rename(in("a2/b2"), in("b3"));
    fs::rename(in("a2"), in("b3/c/a3"));
    EXPECT_TRUE(tells(monitor->take(), in("b3"), FS_EVENT_MOVED_TO | FS_EVENT_DIRECTORY));
    for (const char* file : {"b3/c/d/g", "b3/c/a3/g"}) {
        touch(in(file));
        EXPECT_TRUE(tells(monitor->take(), in(file), FS_EVENT_CREATED)) << file;
    }
}

TEST_P(Monitors, WatchNestedTreesAndEndOne) {
    fs::create_directories(in("a/b"));
    watch();
    ASSERT_EQ(monitor->watch(in("a")), 0);
    ASSERT_EQ(monitor->watch(in("a/")), 0) << "anew";
    touch(in("a/b/f"));
    EXPECT_TRUE(tells(monitor->take(), in("a/b/f"), FS_EVENT_CREATED));
    (**monitor).unwatch(toWide(in("a")).c_str());
    touch(in("a/b/g"));
    EXPECT_TRUE(tells(monitor->take(), in("a/b/g"), FS_EVENT_CREATED));
    (**monitor).unwatch(toWide(tree).c_str());
    touch(in("a/b/h"));
    EXPECT_EQ(monitor->take(), Events());
}

TEST_P(Monitors, RefuseWhatIsNoDirectory) {
    touch(in("f"));
    fs::create_directory_symlink(tree, place / "link");
    fs::create_directory(in("d"));
    for (const auto& [path, error] : {std::pair(in("f"), ENOTDIR),
                                      {in("absent"), ENOENT},
                                      {"tree", EINVAL},
                                      {place / "link/d", EINVAL}}) {
        EXPECT_EQ(monitor->watch(path), error) << path;
        EXPECT_NE(monitor->explained(), "") << path;
    }
}

TEST_P(Monitors, SayWhenEventsWereLostAndGoOn) {
    fs::create_directories(in("d"));
    watch();
    std::ifstream limit(GetParam() == std::string("monitor_inotify")
                            ? "/proc/sys/fs/inotify/max_queued_events"
                            : "/proc/sys/fs/fanotify/max_queued_events");
    int most = 0;
    limit >> most;
    if (most > 20000) GTEST_SKIP() << "the queue of this machine is long";
    // Each name is another event; a file renamed is quicker than a file made.
    touch(in("0"));
    for (int i = 0; i <= most; ++i)
        ::rename(in(std::to_string(i)).c_str(), in(std::to_string(i + 1)).c_str());
    fs::create_directories(in("unseen/below"));
    const Events events = monitor->take();
    unsigned all = 0;
    for (const auto& event : events) all |= event.second;
    EXPECT_NE(all & FS_EVENT_OVERFLOW, 0U);
    touch(in("unseen/below/f"));
    EXPECT_TRUE(tells(monitor->take(), in("unseen/below/f"), FS_EVENT_CREATED));
}

// ---- A random history, judged by lists of all directories before and after each step ----

using Listing = std::map<std::string, std::set<std::pair<std::string, ino_t>>>;

Listing list(const std::string& tree) {
    Listing all;
    all[tree];
    for (const auto& entry : fs::recursive_directory_iterator(tree)) {
        struct stat status {};
        ::lstat(entry.path().c_str(), &status);
        all[entry.path().parent_path()].emplace(entry.path().filename(), status.st_ino);
        if (entry.is_directory()) all[entry.path()];
    }
    return all;
}

/// Whether an event names the directory or an entry of it, or that something above it came.
bool isTold(const Events& events, const std::string& directory) {
    return std::ranges::any_of(events, [&](const auto& event) {
        const auto& [path, action] = event;
        const bool whole = (action & FS_EVENT_DIRECTORY) != 0 && (action & kArrival) != 0;
        return fs::path(path).parent_path() == directory || (whole && liesIn(directory, path));
    });
}

/// Does a random change, or a few, of a small tree, beside which another lies.
void changeAtRandom(std::mt19937& random, const std::string& tree, const std::string& outside) {
    const auto pick = [&](unsigned below) { return static_cast<unsigned>(random() % below); };
    const auto path = [&] {
        std::string made = pick(8) == 0 ? outside : tree;
        for (unsigned depth = 1 + pick(4); depth > 0; --depth)
            made += '/' + std::string(1, static_cast<char>('a' + pick(3)));
        return made;
    };
    std::error_code ignored;
    switch (pick(6)) {
        case 0:
            return touch(path());
        case 1:
            fs::create_directories(path(), ignored);
            return;
        case 2:
            fs::remove(path(), ignored);
            return;
        case 3:
            if (pick(4) == 0) fs::remove_all(path(), ignored);
            return;
        case 4:
            ::renameat2(AT_FDCWD, path().c_str(), AT_FDCWD, path().c_str(), RENAME_EXCHANGE);
            return;
        default:
            fs::rename(path(), path(), ignored);
    }
}

TEST_P(Monitors, MissNothingInARandomHistory) {
    watch();
    std::mt19937 random(7);
    Listing before = list(tree);
    for (int step = 0; step < 2000; ++step) {
        for (unsigned changes = 1 + random() % 4; changes > 0; --changes)
            changeAtRandom(random, tree, outside);
        const Events events = monitor->take();
        Listing now = list(tree);
        for (const auto& [directory, entries] : now) {
            const auto old = before.find(directory);
            if (old != before.end() && old->second == entries) continue;
            ASSERT_TRUE(isTold(events, directory))
                << "step " << step << ": " << directory << testing::PrintToString(events);
        }
        before = std::move(now);
    }
}

// Nothing is asked of the events of changes that are made meanwhile. But afterwards each directory
// has to be watched, by its right path.
TEST_P(Monitors, KnowEachDirectoryAfterChangesThatWereMadeMeanwhile) {
    watch();
    const pid_t child = ::fork();
    if (child == 0) {
        std::mt19937 random(3);
        for (int i = 0; i < 5000; ++i) changeAtRandom(random, tree, outside);
        ::_exit(0);
    }
    while (::waitpid(child, nullptr, WNOHANG) == 0) monitor->take();
    monitor->take();
    for (const auto& [directory, entries] : list(tree)) {
        touch(directory + "/last");
        EXPECT_TRUE(tells(monitor->take(), directory + "/last", FS_EVENT_CREATED)) << directory;
    }
}

// ---- Mounts, users and limits ----

/// Their paths change all the time while the tree is read for the first time.
TEST_P(Monitors, MissNoDirectoryThatMovesWhileTheTreeIsRead) {
    constexpr int kDirectories = 2000;
    const auto last = [](int number) { return "/s" + std::to_string(number) + "/t"; };
    for (int i = 0; i < kDirectories; ++i) fs::create_directories(in("d") + last(i));
    std::atomic<bool> watched = false;
    std::thread renames([&] {
        while (!watched) {
            fs::rename(in("d"), in("e"));
            fs::rename(in("e"), in("d"));
        }
    });
    watch();
    watched = true;
    renames.join();
    while (!monitor->take().empty()) continue;
    for (int i = 0; i < kDirectories; ++i) touch(in("d") + last(i) + "/f");
    const Events events = monitor->take();
    std::set<std::string> told;
    for (const auto& event : events) told.insert(event.first);
    for (int i = 0; i < kDirectories; ++i)
        ASSERT_TRUE(told.contains(in("d") + last(i) + "/f")) << i;
}

TEST_P(Monitors, AreNoHindranceToUnmountingAndKeepTheirOtherTrees) {
    const std::string mounted = place / "mounted";
    withPrivateMounts([&] {
        if (!mountMemory("memory", mounted)) return kNotAllowed;
        Monitor own(GetParam());
        if (own.watch(tree) != 0 || own.watch(mounted) != 0) return 1;
        touch(mounted + "/f");
        if (!tells(own.take(), mounted + "/f", FS_EVENT_CREATED)) return 2;
        if (::umount(mounted.c_str()) != 0) return 3;
        touch(in("f"));
        const Events events = own.take();
        if (!tells(events, mounted, FS_EVENT_UNWATCHED)) return 4;
        return tells(events, in("f"), FS_EVENT_CREATED) ? 0 : 5;
    });
}

TEST_P(Monitors, TellOfATreeByEachMountItIsSeenThrough) {
    const std::string bound = place / "bound";
    fs::create_directories(in("a/b"));
    fs::create_directories(in("hole"));
    fs::create_directories(bound);
    withPrivateMounts([&] {
        const auto bind = [&](const std::string& to) {
            return ::mount(in("a").c_str(), to.c_str(), nullptr, MS_BIND, nullptr) == 0;
        };
        if (!bind(bound) || !bind(in("hole"))) return kNotAllowed;
        Monitor own(GetParam());
        if (own.watch(tree) != 0 || own.watch(bound) != 0) return 1;
        touch(in("a/b/f"));
        const Events events = own.take();
        if (!tells(events, in("a/b/f"), FS_EVENT_CREATED)) return 2;
        return tells(events, bound + "/b/f", FS_EVENT_CREATED) ? 0 : 3;
    });
}

INSTANTIATE_TEST_SUITE_P(Both, Monitors, testing::Values("monitor_fanotify", "monitor_inotify"),
                         [](const auto& one) { return std::string(one.param + 8); });

class FanotifyMonitor : public Monitors {};

TEST_P(FanotifyMonitor, NeedsRootAndTellsOfDirectoriesAboveTheTree) {
    fs::create_directories(in("a/root"));
    ASSERT_EQ(monitor->watch(in("a/root")), 0);
    fs::rename(in("a"), in("b"));
    EXPECT_TRUE(tells(monitor->take(), in("a"), FS_EVENT_MOVED_FROM | FS_EVENT_DIRECTORY));
    fs::permissions(place.path(), fs::perms(0755));
    EXPECT_EQ(inChild([&] {
                  if (!becomeNobody()) return 1;
                  Monitor own(GetParam());
                  if (own.watch(tree) != EPERM) return 2;
                  return own.explained() == "monitor_fanotify needs root" ? 0 : 3;
              }),
              0);
}
INSTANTIATE_TEST_SUITE_P(One, FanotifyMonitor, testing::Values("monitor_fanotify"));

class InotifyMonitor : public Monitors {};

TEST_P(InotifyMonitor, FollowsDirectoriesThatBecomeReadable) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    fs::permissions(place.path(), fs::perms(0755));
    fs::permissions(tree, fs::perms(0777));
    EXPECT_EQ(inChild([&] {
                  if (!becomeNobody()) return 1;
                  fs::create_directories(in("secret/below"));
                  ::chmod(in("secret").c_str(), 0);
                  Monitor own(GetParam());
                  if (own.watch(tree) != 0) return 2;
                  if (!tells(own.take(), in("secret"), FS_EVENT_UNWATCHED)) return 3;
                  ::chmod(in("secret").c_str(), 0700);
                  if (!tells(own.take(), in("secret"), FS_EVENT_CREATED)) return 4;
                  touch(in("secret/below/f"));
                  if (!tells(own.take(), in("secret/below/f"), FS_EVENT_CREATED)) return 5;
                  ::chmod(in("secret/below").c_str(), 0300);
                  fs::create_directories(in("secret/below/deeper"));
                  return tells(own.take(), in("secret/below/deeper"), FS_EVENT_UNWATCHED) ? 0 : 6;
              }),
              0);
}

TEST_P(InotifyMonitor, SaysThatThereAreTooManyDirectories) {
    for (int i = 0; i < 20; ++i) fs::create_directories(in(std::to_string(i)));
    const int status = inChild([&] {
        if (::unshare(CLONE_NEWUSER) != 0) return kNotAllowed;
        std::ofstream limit("/proc/sys/user/max_inotify_watches");
        if (!(limit << 10).flush()) return kNotAllowed;
        Monitor own(GetParam());
        if (own.watch(tree) != ENOSPC) return 1;
        const std::string said = own.explained();
        if (said.find(" has 21 directories, and only 10 may be") == std::string::npos) return 2;
        fs::remove_all(in("0"));
        for (int i = 4; i < 20; ++i) fs::remove(in(std::to_string(i)));
        if (own.watch(tree) != 0) return 3;
        for (int i = 4; i < 20; ++i) fs::create_directories(in(std::to_string(i)));
        return tells(own.take(), tree, FS_EVENT_UNWATCHED) ? 0 : 4;
    });
    if (status == kNotAllowed) GTEST_SKIP() << "the limit cannot be set on this machine";
    EXPECT_EQ(status, 0);
}

TEST_P(InotifyMonitor, EndsWhenTheRootGoes) {
    watch();
    fs::rename(tree, tree + "2");
    EXPECT_TRUE(tells(monitor->take(), tree, FS_EVENT_UNWATCHED));
    EXPECT_FALSE(monitor->readable());
}
INSTANTIATE_TEST_SUITE_P(One, InotifyMonitor, testing::Values("monitor_inotify"));

}  // namespace
}  // namespace fscanner
