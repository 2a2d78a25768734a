// Several processes use one cache, by one name or by several: there are never two writers, and
// every answer is right.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/socket.h>

#include <array>
#include <map>
#include <tuple>

#include "fscanner/engine/cache.h"
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
    // Makes the other process's path to the cache directory; empty where that is not
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
            if (path.empty()) return kNotAllowed;
            return cacheAt(toWide(path))->lock(limit) == 0 ? 1 : 0;
        });
    };
    const int meanwhile = other(250);
    if (meanwhile == kNotAllowed) GTEST_SKIP() << "no mounts of our own here";
    EXPECT_EQ(meanwhile, 0);
    fs::remove(host.place.path("link"));
    holder->unlock();
    EXPECT_EQ(other(1000), 1) << "the lock was kept";
    // A limit of 0 never succeeds, also when nobody holds the lock.
    EXPECT_EQ(holder->lock(0), FS_CACHE_LOCK_TIMED_OUT);
}

INSTANTIATE_TEST_SUITE_P(By, TwoNames, testing::ValuesIn(kRoads),
                         [](const auto& form) { return form.param.name; });

// The lock is needed even if the path is too long for a name in the common directory, or there is
// no such directory.
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

// A process waits for the lock while the directory is removed and made again. Whoever comes
// then, there is one writer.
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
    ::usleep(200000);  // until it waits; an earlier step would only prove less
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

// ---- Readers -------------------------------------------------------------------

class Readers : public testing::Test {
protected:
    Readers() {
        host.plant(4, 3);
        host.place.directory("cache");
        host.describe(query);
    }
    std::unique_ptr<FS_Cache> cache() const { return cacheAt(host.cacheDirectory()); }
    // For a process that has the cache alone.
    int ask(unsigned age) const {
        const auto alone = cache();
        CollectingWriter found;
        if (alone->lock(1000) != 0 || alone->create(0, FS_CACHE_OPEN_ALWAYS) != 0) return -1;
        const int status = alone->executeQuery(found, query, kMinute, age);
        alone->close();
        alone->unlock();
        return found.sorted() == host.truth() ? status : 99;
    }
    // For a reader; 99 means a wrong answer. The steps are logged with their results.
    int read(unsigned age, CollectingWriter& found) const {
        const auto reader = cache();
        if (const int status = reader->lockShared(200)) return status;
        int status = reader->create(0, FS_CACHE_OPEN);
        if (status == 0) status = reader->executeQuery(found, query, kMinute, age);
        reader->close();
        reader->unlock();
        return status == 0 && found.sorted() != host.truth() ? 99 : status;
    }
    int read(unsigned age = kDay) const {
        CollectingWriter found;
        const int status = read(age, found);
        if (status != 0) {
            EXPECT_THAT(found.paths, testing::IsEmpty());
        }
        return status;
    }
    // All files of the cache, with their contents and times of writing.
    std::map<std::string, std::string> content() const {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::directory_iterator(host.cache))
            files[entry.path().filename()] =
                std::to_string(entry.last_write_time().time_since_epoch().count()) + " " +
                readWholeFile(entry.path());
        return files;
    }
    bool isMarked() const { return fs::exists(host.cache + "/dirs.cuflag"); }

    FaultHost host;
    FsQuery query;
};

// The lock that one holds, the lock that another asks for, and whether another process and
// another object of the thread can have it.
TEST_F(Readers, ShareTheLockAndWritersDoNot) {
    using Lock = int (FS_Cache::*)(int);
    constexpr Lock kAlone = &FS_Cache::lock;
    constexpr Lock kShared = &FS_Cache::lockShared;
    for (const auto& [held, asked, expected] : {std::tuple(kAlone, kAlone, FS_CACHE_LOCK_TIMED_OUT),
                                                {kAlone, kShared, FS_CACHE_LOCK_TIMED_OUT},
                                                {kShared, kAlone, FS_CACHE_LOCK_TIMED_OUT},
                                                {kShared, kShared, FS_CACHE_SUCCESS}}) {
        const auto holder = cache();
        ASSERT_EQ((*holder.*held)(1000), 0);
        EXPECT_EQ(inChild([&, wanted = asked] { return -(*cache().*wanted)(100); }), -expected);
        EXPECT_EQ((*cache().*asked)(3600000), expected);  // at once
        // The same object changes its lock; it gives up the old one.
        ASSERT_EQ((*holder.*asked)(1000), 0);
        EXPECT_EQ(inChild([&] { return -cache()->lockShared(100); }),
                  asked == kShared ? 0 : -FS_CACHE_LOCK_TIMED_OUT);
        holder->unlock();
    }
    const auto first = cache(), second = cache();
    ASSERT_EQ(first->lockShared(1000) + second->lockShared(1000), 0);
    EXPECT_EQ(first->lock(3600000), FS_CACHE_LOCK_TIMED_OUT);
    second->unlock();
    EXPECT_EQ(first->lock(1000), 0);
}

// Earlier versions lock only the directory.
TEST_F(Readers, ExcludeWritersThatLockTheDirectory) {
    fs::permissions(host.cache, fs::perms::owner_all);
    const int directory = ::open(host.cache.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(directory, LOCK_EX), 0);
    const auto reader = cache();
    EXPECT_EQ(reader->lockShared(100), FS_CACHE_LOCK_TIMED_OUT);
    ::flock(directory, LOCK_UN);
    ASSERT_EQ(reader->lockShared(1000), 0);
    EXPECT_NE(::flock(directory, LOCK_EX | LOCK_NB), 0);
    ::close(directory);
}

// Readers come and go, and there is always at least one.
TEST_F(Readers, LetAWriterHaveItsTurn) {
    std::vector<pid_t> readers;
    for (unsigned i = 0; i < 6; ++i) {
        readers.push_back(::fork());
        if (readers.back() != 0) continue;
        for (const auto reader = cache();;) {
            if (reader->lockShared(60000) == 0) ::usleep(50000);
            reader->unlock();
        }
    }
    ::usleep(200000);  // until they are reading; an earlier step would only prove less
    const auto writer = cache();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(writer->lock(60000), 0);
        writer->unlock();
    }
    for (const pid_t reader : readers) {
        ::kill(reader, SIGKILL);
        ::waitpid(reader, nullptr, 0);
    }
}

TEST_F(Readers, ChangeNothing) {
    ASSERT_EQ(ask(kDay), 0);
    const auto before = content();
    for (const unsigned age : {kDay, kAllOld})
        EXPECT_EQ(read(age), age == kDay ? 0 : FS_CACHE_NEEDS_CHANGE);
    const auto reader = cache();
    ASSERT_EQ(reader->lockShared(1000), 0);
    EXPECT_EQ(reader->create(0, FS_CACHE_CREATE), FS_CACHE_NEEDS_CHANGE);
    ASSERT_EQ(reader->create(0, FS_CACHE_OPEN_ALWAYS), 0);
    EXPECT_EQ(reader->refresh(query, kMinute, kDay), FS_CACHE_NEEDS_CHANGE);
    EXPECT_EQ(reader->lock(1), FS_CACHE_LOCK_TIMED_OUT) << "others would change what is open";
    EXPECT_NE(reader->share(1), 0);
    EXPECT_TRUE(reader->close());
    EXPECT_FALSE(reader->compact());
    EXPECT_FALSE(reader->remove());
    // Nor does a reader that dies.
    inChild([&] {
        const auto dies = cache();
        if (dies->lockShared(1000) != 0 || dies->create(0, FS_CACHE_OPEN) != 0) return 1;
        return ::raise(SIGKILL);
    });
    EXPECT_EQ(content(), before);
    EXPECT_EQ(read(), 0);
}

TEST_F(Readers, SayWhatNeedsAChange) {
    EXPECT_EQ(read(), FS_CACHE_NEEDS_CHANGE) << "no cache";
    ASSERT_EQ(ask(kDay), 0);
    ASSERT_EQ(read(), 0);
    const std::string mark = host.cache + "/dirs.cuflag";
    writeWholeFile(mark, "");
    EXPECT_EQ(read(), FS_CACHE_NEEDS_CHANGE) << "a mark";
    EXPECT_TRUE(isMarked());
    fs::remove(mark);
    query.addIncludePath((L"*:" + host.place.wide("locks")).c_str(), true);
    const Listener heard;
    query.addIncludePath(L"nodrive:/nowhere", true);
    EXPECT_EQ(read(), FS_CACHE_NEEDS_CHANGE) << "one tree of two";
    EXPECT_FALSE(heard.toldOfGaps()) << "it is told with the answer";
}

// A reader cannot make the cache anew, but makes the next user do so. This holds also if a
// process died after it had finished, when its journal says that all is well.
TEST_F(Readers, MarkADamagedCache) {
    ASSERT_EQ(ask(kDay), 0);
    const std::string journal = host.cache + "/dirs.undo";
    const auto user = cache();
    ASSERT_EQ(user->lock(1000), 0);
    ASSERT_EQ(user->create(0, FS_CACHE_OPEN_ALWAYS), 0);
    const std::string finished = readWholeFile(journal);
    ASSERT_NE(finished, "");
    user->close();
    user->unlock();
    for (const bool left : {false, true}) {
        if (left) writeWholeFile(journal, finished);
        const std::string offsets = host.cache + "/files.pxx";
        overwriteFile(offsets, 0, std::string(fs::file_size(offsets), '\xfe'));
        EXPECT_EQ(read(), FS_CACHE_UNUSABLE);
        EXPECT_TRUE(isMarked());
        EXPECT_EQ(read(), FS_CACHE_NEEDS_CHANGE);
        EXPECT_EQ(ask(kDay), 0) << left;
        EXPECT_EQ(read(), 0);
    }
}

TEST_F(Readers, ReadWhatTheyBuiltBesideOthers) {
    const fs::path gone = host.place.path("gone");
    fs::create_directory(gone);
    ASSERT_EQ(ask(kDay), 0);
    host.tree.file("d0/new");
    query.addIncludePath((L"*:" + host.place.wide("gone")).c_str(), true);
    host.describeParts(query, {"d1"});
    for (const bool isThere : {true, false}) {
        if (!isThere) fs::remove(gone);
        const auto builder = cache();
        ASSERT_EQ(builder->lock(1000), 0);
        ASSERT_EQ(builder->create(0, FS_CACHE_OPEN_ALWAYS), 0);
        const Listener heard;
        ASSERT_EQ(builder->refresh(query, kMinute, FS_CACHE_REBUILD), 0);
        EXPECT_TRUE(isMarked());
        EXPECT_EQ(heard.toldOfGaps(), !isThere);
        ASSERT_EQ(builder->share(1000), 0);
        EXPECT_FALSE(isMarked()) << "readers would find it";
        CollectingWriter found;
        EXPECT_EQ(builder->executeQuery(found, query, kMinute, FS_CACHE_REBUILD), 0);
        EXPECT_EQ(found.sorted(), host.truth());
        EXPECT_EQ(inChild([&] { return -read(); }), 0);
        // Trees that it did not build are no younger for it than for others.
        FsQuery other;
        host.describeParts(other, {"d2"});
        EXPECT_EQ(builder->executeQuery(found, other, kMinute, FS_CACHE_REBUILD),
                  FS_CACHE_NEEDS_CHANGE);
        EXPECT_TRUE(builder->close());
        builder->unlock();
    }
}

// A slow writer of records does not stop others from reading.
TEST_F(Readers, ReadWhileAnAnswerIsTaken) {
    class Slow : public CollectingWriter {
    public:
        explicit Slow(int gate) : gate_(gate) {}
        int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                      unsigned attributes) override {
            char go = 0;
            if (paths.empty() && ::write(gate_, "b", 1) == 1 && ::read(gate_, &go, 1) != 1)
                return -1;
            return CollectingWriter::addRecord(path, name, size, attributes);
        }

    private:
        int gate_;
    };
    std::array<int, 2> gate{};
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, gate.data()), 0);
    const auto truth = host.truth();
    for (const unsigned age : {kAllOld, kDay}) {
        const pid_t slow = ::fork();
        if (slow == 0) {
            Slow writer(gate[1]);
            const int status = host.provider()->executeQuery(writer, query, age, kMinute);
            ::_exit(status == 0 && writer.sorted() == truth ? 0 : 1);
        }
        char begun = 0;
        ASSERT_EQ(::read(gate[0], &begun, 1), 1);
        const Answer answer = host.ask();
        EXPECT_EQ(answer.status, 0);
        EXPECT_EQ(answer.paths, truth);
        EXPECT_EQ(answer.walked, 0U);
        ASSERT_EQ(::write(gate[0], "g", 1), 1);
        int status = 0;
        ::waitpid(slow, &status, 0);
        EXPECT_EQ(status, 0);
    }
    for (const int end : gate) ::close(end);
}

}  // namespace
}  // namespace fscanner
