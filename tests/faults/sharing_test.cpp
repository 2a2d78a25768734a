// Several processes on one cache, by one name or by several: never two writers, and every
// answer right.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>

#include <array>
#include <atomic>
#include <chrono>

#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_store.h"
#include "host.h"
#include "support/private_mounts.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

std::unique_ptr<FS_Cache> cacheAt(const std::wstring& directory) {
    return std::make_unique<FS_Cache>(L"dirs", L"files", directory.c_str(), false, false, true);
}

// ---- Two names -----------------------------------------------------------------

struct Road {
    const char* name;
    // Makes the other process's way to the cache directory; empty where that is not
    // permitted.
    std::string (*prepare)(const FaultHost&, const std::string& directory);
};

const Road kRoads[] = {
    {"Dots",
     [](const FaultHost&, const std::string& directory) { return directory + "/../cache/."; }},
    {"Link",
     [](const FaultHost& host, const std::string& directory) {
         fs::create_directory_symlink(directory, host.place.path("link"));
         return host.place.path("link");
     }},
    {"LockFileDeleted",
     [](const FaultHost& host, const std::string& directory) {
         for (const std::string& path : FaultHost::walkFresh(host.place.path("locks")))
             fs::remove(path);
         return directory;
     }},
    {"PrivateLockDirectory",
     [](const FaultHost& host, const std::string& directory) {
         const bool mounted = enterPrivateMounts() && mountMemory("none", host.place.path("locks"));
         return mounted ? directory : std::string();
     }},
    {"BindMount",
     [](const FaultHost& host, const std::string& directory) {
         host.place.directory("elsewhere");
         const std::string other = host.place.path("elsewhere");
         const bool mounted = enterPrivateMounts() && ::mount(directory.c_str(), other.c_str(),
                                                              nullptr, MS_BIND, nullptr) == 0;
         return mounted ? other : std::string();
     }},
};

class TwoNames : public testing::TestWithParam<Road> {};

TEST_P(TwoNames, LeadToOneWriter) {
    const FaultHost host;
    host.place.directory("cache");
    const auto holder = cacheAt(host.cacheDirectory());
    ASSERT_EQ(holder->lock(1000), 0);
    const auto other = [&](int limit) {
        return inChild([&] {
            const std::string path = GetParam().prepare(host, host.place.path("cache"));
            if (path.empty()) return notAllowed;
            return cacheAt(toWide(path))->lock(limit) == 0 ? 1 : 0;
        });
    };
    const int meanwhile = other(250);
    if (meanwhile == notAllowed) GTEST_SKIP() << "no mounts of our own here";
    EXPECT_EQ(meanwhile, 0);
    fs::remove(host.place.path("link"));
    holder->unlock();
    EXPECT_EQ(other(1000), 1) << "the lock was kept";
    // A limit of 0 never succeeds, also when nobody holds the lock.
    EXPECT_EQ(holder->lock(0), FS_CACHE_LOCK_TIMED_OUT);
}

INSTANTIATE_TEST_SUITE_P(By, TwoNames, testing::ValuesIn(kRoads),
                         [](const auto& form) { return form.param.name; });

// A path too long for a name in the common directory, or no such directory at all, is no
// reason to do without the lock.
TEST(TwoNames, NeedNoCommonDirectory) {
    const FaultHost host;
    const std::string part = "/" + std::string(120, 'n');
    host.place.directory("cache" + part + part + part);
    for (const std::string& below : {part + part + part, std::string()}) {
        const auto holder = cacheAt(host.cacheDirectory() + toWide(below));
        ASSERT_EQ(holder->lock(200), 0);
        EXPECT_EQ(inChild([&] {
                      const auto other = cacheAt(host.cacheDirectory() + toWide(below));
                      return other->lock(200) == FS_CACHE_LOCK_TIMED_OUT ? 0 : 1;
                  }),
                  0);
        holder->unlock();
        fs::remove_all(host.place.path("locks"));
    }
}

// One waits for the lock, and the directory is removed and made again: whoever comes then,
// there is one writer.
TEST(TwoNames, LeadToOneWriterInANewDirectory) {
    const FaultHost host;
    host.place.directory("cache");
    std::array<int, 2> locked{};
    ASSERT_EQ(::pipe(locked.data()), 0);
    auto holder = cacheAt(host.cacheDirectory());
    ASSERT_EQ(holder->lock(1000), 0);
    const pid_t waiter = ::fork();
    if (waiter == 0) {
        const auto cache = cacheAt(host.cacheDirectory());
        const char status = cache->lock(10000) == 0 ? 's' : 'f';
        if (::write(locked[1], &status, 1) == 1) ::pause();
        ::_exit(0);
    }
    ::usleep(200000);  // until it waits: earlier, and the test proves less
    fs::remove_all(host.cache);
    host.place.directory("cache");
    holder->unlock();
    char status = 0;
    ASSERT_EQ(::read(locked[0], &status, 1), 1);
    EXPECT_EQ(status, 's');
    EXPECT_EQ(cacheAt(host.cacheDirectory())->lock(200), FS_CACHE_LOCK_TIMED_OUT);
    ::kill(waiter, SIGKILL);
    ::waitpid(waiter, nullptr, 0);
    EXPECT_EQ(cacheAt(host.cacheDirectory())->lock(1000), 0);
    for (const int end : locked) ::close(end);
}

// ---- Many at once --------------------------------------------------------------

struct Tally {
    std::atomic<int> answers;
    std::atomic<int> wrong;
    std::atomic<int> failed;
    std::atomic<int> twoWriters;
    std::atomic<pid_t> writer;
    std::atomic<pid_t> killed;  // the last one; the others are buried

    void enter() {
        const pid_t other = writer.exchange(::getpid());
        if (other != 0 && other != killed && ::kill(other, 0) == 0) ++twoWriters;
    }
    void leave() {
        if (writer.exchange(0) != ::getpid()) ++twoWriters;
    }
};

class ManyAtOnce : public testing::Test {
protected:
    ManyAtOnce() {
        host.plant(9, 6);
        host.place.directory("cache");
        truth = host.truth();
        void* const shared = ::mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE,
                                    MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        tally = new (shared) Tally();
    }
    ~ManyAtOnce() override { ::munmap(tally, sizeof(Tally)); }

    // One search of a part of the tree, as a provider does it.
    void searchOnce(std::mt19937& random) const {
        static const char* const parts[] = {"", "d0", "d1", "d2", "d0/e3", "d1/e4/f0"};
        static const char* const endings[] = {"", ".h", ".txt"};
        const std::string root = host.tree.path(parts[below(random, std::size(parts))]);
        const std::string ending = endings[below(random, std::size(endings))];
        const unsigned ages[] = {FaultHost::kAnyAge, FaultHost::kAnyAge, 0, FaultHost::kNoAge};
        FsQuery query;
        query.addIncludePath((L"*:" + toWide(root)).c_str(), true);
        if (!ending.empty()) query.setQuery((L"[FILENAME]==\"*" + toWide(ending) + L"\"").c_str());
        CollectingWriter found;
        const int status = run(found, query, ages[below(random, std::size(ages))], random() % 2);
        ++tally->answers;
        if (status != 0)
            ++tally->failed;
        else if (found.sorted() != right(root, ending))
            ++tally->wrong;
    }
    int run(CollectingWriter& found, const FsQuery& query, unsigned age, bool kept) const {
        const auto cache = cacheAt(host.cacheDirectory());
        if (const int status = cache->lock(30000)) return status;
        tally->enter();
        int status = cache->create(0, FS_CACHE_OPEN_ALWAYS);
        if (status == 0)
            status = kept ? cache->executeQueryEx(found, query, 60000, age)
                          : cache->executeQuery(found, query, 60000, age);
        cache->close();
        cache->compact();
        tally->leave();
        cache->unlock();
        return status;
    }
    std::vector<std::string> right(const std::string& root, const std::string& ending) const {
        std::vector<std::string> paths;
        for (const std::string& path : truth)
            if (path.starts_with(root + "/") && path.ends_with(ending)) paths.push_back(path);
        return paths;
    }
    pid_t start(unsigned seed) const {
        const pid_t child = ::fork();
        if (child != 0) return child;
        for (std::mt19937 random(seed);;) searchOnce(random);
    }
    // The signal that ended it.
    int end(pid_t child) const {
        tally->killed = child;
        ::kill(child, SIGKILL);
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    // The IDs that directories have, and whether each is one's own.
    void expectExactCounter() const {
        FS_Table table(L"dirs", host.cacheDirectory().c_str(), false);
        ASSERT_TRUE(table.open());
        RecordSet records = table.openRecordSet();
        std::set<unsigned> ids;
        for (bool more = records.moveFirst(); more; more = records.moveNext())
            EXPECT_TRUE(ids.insert(records.getFieldAsInt32(DIRECTORIES_ID)).second);
        table.close();
        const std::string bytes = readWholeFile(host.place.path("cache/dirs.counter"));
        ASSERT_EQ(bytes.size(), 4U);
        unsigned counter = 0;
        for (unsigned i = 0; i < 4; ++i)
            counter |= static_cast<unsigned>(static_cast<unsigned char>(bytes[i])) << 8 * i;
        ASSERT_FALSE(ids.empty());
        EXPECT_EQ(*ids.rbegin(), counter);
    }

    FaultHost host;
    std::vector<std::string> truth;
    Tally* tally = nullptr;
};

TEST_F(ManyAtOnce, GetRightAnswersWhoeverDies) {
    constexpr unsigned kProcesses = 4;
    std::mt19937 random(17);
    unsigned seed = 0;
    std::vector<pid_t> children;
    for (unsigned i = 0; i < kProcesses; ++i) children.push_back(start(++seed));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(6 * faultScale());
    int kills = 0;
    while (std::chrono::steady_clock::now() < deadline) {
        ::usleep(20000 + below(random, 200000));
        pid_t& child = children[below(random, kProcesses)];
        EXPECT_EQ(end(child), SIGKILL);
        ++kills;
        child = start(++seed);
    }
    for (const pid_t child : children) end(child);
    EXPECT_EQ(tally->wrong, 0);
    EXPECT_EQ(tally->failed, 0);
    EXPECT_EQ(tally->twoWriters, 0);
    EXPECT_GT(tally->answers, 100);
    std::printf("%d answers, %d kills\n", tally->answers.load(), kills);

    FsQuery query;
    host.describe(query);
    CollectingWriter found;
    EXPECT_EQ(run(found, query, FaultHost::kNoAge, false), 0);
    EXPECT_EQ(found.sorted(), truth);
    expectExactCounter();
}

}  // namespace
}  // namespace fscanner
