// Named locks and semaphores, within the process and between processes.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "fscanner/platform/linuxsemaphore.h"
#include "fscanner/platform/linuxsync.h"
#include "fscanner/platform/sync_registry.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

long elapsedSince(steady_clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start).count();
}

// A limit's milliseconds count as microseconds, and 1000 of those as a second.
TEST(SyncDeadline, TakesMillisecondsForMicroseconds) {
    struct Case {
        timeval now;
        long limit;
        timespec deadline;
    };
    const Case cases[] = {
        {{100, 500000}, 0, {101, 499000000}},
        {{100, 500000}, 100, {101, 499100000}},
        {{100, 500000}, 1500, {102, 499500000}},
        {{100, 999}, 0, {100, 999000}},
        {{100, 999}, 1, {101, 0}},
        {{100, 400}, 2500, {102, 900000}},
        {{100, 999999}, 999, {101, 999998000}},
    };
    for (const Case& c : cases) {
        const timespec deadline = syncDeadline(c.now, c.limit);
        EXPECT_EQ(deadline.tv_sec, c.deadline.tv_sec) << c.now.tv_usec << " + " << c.limit;
        EXPECT_EQ(deadline.tv_nsec, c.deadline.tv_nsec) << c.now.tv_usec << " + " << c.limit;
    }
}

TEST(LinuxMutex, ExcludesObjectsOfItsNameOnly) {
    LinuxMutex first("lock");
    LinuxMutex second("lock");
    LinuxMutex other("another");
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(second.wait(0), SYNC_TIMED_OUT);
    EXPECT_EQ(second.release(), 0) << "nobody owns it";
    EXPECT_EQ(second.wait(), 0);
    EXPECT_EQ(first.release(), 0);
    EXPECT_EQ(first.release(), 0) << "releasing a free one";
    EXPECT_EQ(first.wait(1000), 0);
    EXPECT_EQ(LinuxMutex(nullptr).wait(), SYNC_FAILED);
}

template <typename Sync>
void expectToWakeAWaiter(Sync& sync) {
    std::atomic<bool> entered = false;
    std::thread waiter([&] {
        EXPECT_EQ(sync.wait(), 0);
        entered = true;
    });
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_FALSE(entered);
    sync.release();
    waiter.join();
}

TEST(InProcessSync, WakesAWaiter) {
    LinuxMutex mutex("wake");
    ASSERT_EQ(mutex.wait(), 0);
    expectToWakeAWaiter(mutex);
    LinuxSemaphore semaphore("wake");
    expectToWakeAWaiter(semaphore);
}

TEST(LinuxMutex, StateLivesAsLongAsTheNameHasObjects) {
    auto first = std::make_unique<LinuxMutex>("life");
    auto second = std::make_unique<LinuxMutex>("life");
    EXPECT_TRUE(first->created());
    EXPECT_FALSE(second->created());
    ASSERT_EQ(first->wait(), 0);
    first.reset();
    EXPECT_EQ(LinuxMutex("life").wait(0), SYNC_TIMED_OUT) << "held through the second object";
    second.reset();
    LinuxMutex fresh("life");
    EXPECT_TRUE(fresh.created());
    EXPECT_EQ(fresh.wait(), 0);
}

// Made before and destroyed after everything that a test makes.
LinuxMutex lateMutex("late");
LinuxSemaphore lateSemaphore("late");

TEST(LinuxSemaphore, CountsUnits) {
    LinuxSemaphore producer("units");
    LinuxSemaphore consumer("units");
    LinuxMutex sameName("units");
    EXPECT_TRUE(sameName.created()) << "locks and semaphores have names of their own";
    EXPECT_EQ(producer.release(), 0);
    EXPECT_EQ(producer.release(), 0);
    EXPECT_EQ(consumer.wait(), 0);
    EXPECT_EQ(consumer.wait(100), 0);
    const auto start = steady_clock::now();
    EXPECT_EQ(consumer.wait(0), SYNC_TIMED_OUT);
    EXPECT_LT(elapsedSince(start), 1500);
    EXPECT_EQ(producer.release(), 0);
    EXPECT_EQ(consumer.wait(), 0) << "a wait in vain takes no unit";
}

template <typename Sync>
void* waitForever(void* sync) {
    static_cast<Sync*>(sync)->wait();
    return nullptr;
}

// A cancelled waiter must not keep the record's inner mutex: nothing could be
// released or taken any more.
template <typename Sync>
void cancelAWaiter(Sync& sync) {
    pthread_t waiter;
    ASSERT_EQ(pthread_create(&waiter, nullptr, waitForever<Sync>, &sync), 0);
    std::this_thread::sleep_for(milliseconds(50));
    ASSERT_EQ(pthread_cancel(waiter), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(waiter, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(sync.release(), 0);
    EXPECT_EQ(sync.wait(), 0);
}

TEST(InProcessSync, SurvivesACancelledWaiter) {
    LinuxMutex mutex("cancel");
    ASSERT_EQ(mutex.wait(), 0);
    cancelAWaiter(mutex);
    LinuxSemaphore semaphore("cancel");
    cancelAWaiter(semaphore);
}

class SharedMutex : public testing::Test {
protected:
    SharedMutex() { EXPECT_TRUE(LinuxSharedMutex::setStorePath(directory_.path().c_str())); }
    ~SharedMutex() override { LinuxSharedMutex::setStorePath("/tmp/"); }

    std::string lockFile() const { return directory_ / "lock"; }

    /// A process that takes the lock, says so and runs `work`.
    template <typename Work>
    pid_t startHolder(Work work) {
        int ready[2];
        EXPECT_EQ(pipe(ready), 0);
        const pid_t child = fork();
        if (child == 0) {
            LinuxSharedMutex mutex("lock");
            const char status = mutex.wait() == 0 ? 'y' : 'n';
            if (write(ready[1], &status, 1) != 1) _exit(2);
            _exit(work(mutex));
        }
        close(ready[1]);
        char status = 0;
        EXPECT_EQ(read(ready[0], &status, 1), 1);
        EXPECT_EQ(status, 'y');
        close(ready[0]);
        return child;
    }

    static int sleepForever(LinuxSharedMutex& /*held*/) {
        for (;;) pause();
    }

    TemporaryDirectory directory_;
};

TEST_F(SharedMutex, TimesOutInTriesOfAHundredMilliseconds) {
    LinuxSharedMutex mutex("lock");
    EXPECT_EQ(mutex.wait(0), SYNC_TIMED_OUT) << "no try at all, though it is free";
    EXPECT_EQ(mutex.wait(-5), SYNC_TIMED_OUT);
    const pid_t holder = startHolder(sleepForever);
    const auto start = steady_clock::now();
    EXPECT_EQ(mutex.wait(250), SYNC_TIMED_OUT);
    EXPECT_GE(elapsedSince(start), 300) << "three tries, a sleep after each";
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    EXPECT_EQ(mutex.wait(1), 0);
    EXPECT_EQ(mutex.release(), 0);
}

TEST_F(SharedMutex, GoesBackWhenItsHolderIsKilled) {
    LinuxSharedMutex mutex("lock");
    for (int round = 0; round < 20; ++round) {
        const pid_t holder = startHolder(sleepForever);
        std::thread killer([&] { kill(holder, SIGKILL); });
        EXPECT_EQ(mutex.wait(), 0);
        killer.join();
        waitpid(holder, nullptr, 0);
        EXPECT_EQ(mutex.release(), 0);
    }
}

TEST_F(SharedMutex, ExcludesProcesses) {
    constexpr int rounds = 300, processes = 4;
    void* memory =
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    auto* counter = static_cast<volatile int*>(memory);
    LinuxSharedMutex keepsTheFile("lock");
    pid_t children[processes];
    for (pid_t& child : children) {
        child = fork();
        if (child != 0) continue;
        // Never destroyed: destruction would remove the file under the others.
        auto* mutex = new LinuxSharedMutex("lock");
        for (int i = 0; i < rounds; ++i) {
            if (mutex->wait() != 0) _exit(1);
            const int seen = *counter;
            if (i % 16 == 0) usleep(50);
            *counter = seen + 1;
            mutex->release();
        }
        _exit(0);
    }
    for (const pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(*counter, rounds * processes);
    munmap(memory, sizeof(int));
}

TEST_F(SharedMutex, DoesNotExcludeThisProcessAndRemovesItsFile) {
    {
        LinuxSharedMutex first("lock");
        LinuxSharedMutex second("lock");
        EXPECT_EQ(first.wait(), 0);
        EXPECT_EQ(second.wait(), 0);
        struct stat status {};
        ASSERT_EQ(stat(lockFile().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U);
    }
    EXPECT_FALSE(std::filesystem::exists(lockFile()));
}

TEST_F(SharedMutex, FailsWithoutAFileItCanTrust) {
    const auto expectUseless = [](const char* what) {
        LinuxSharedMutex mutex("lock");
        EXPECT_EQ(mutex.wait(), SYNC_FAILED) << what;
        EXPECT_EQ(mutex.wait(100), SYNC_FAILED) << what;
        EXPECT_EQ(mutex.release(), -1) << what;
    };
    const auto target = directory_ / "target";
    ASSERT_GE(close(creat(target.c_str(), 0600)), 0);
    std::filesystem::create_symlink(target, lockFile());
    expectUseless("a link");
    std::filesystem::create_hard_link(target, lockFile());
    expectUseless("a second name of another file");
    std::filesystem::remove(lockFile());
    ASSERT_EQ(mkfifo(lockFile().c_str(), 0600), 0);
    expectUseless("a pipe");
    EXPECT_TRUE(std::filesystem::exists(target));
    LinuxSharedMutex::setStorePath((directory_ / "missing").c_str());
    expectUseless("no directory");
    EXPECT_EQ(LinuxSharedMutex(nullptr).wait(), SYNC_FAILED);
}

TEST_F(SharedMutex, StorePathEndsInASlashAndFits) {
    const auto taken = [this] {
        LinuxSharedMutex mutex("lock");
        return std::filesystem::exists(lockFile());
    };
    EXPECT_FALSE(LinuxSharedMutex::setStorePath(nullptr));
    EXPECT_FALSE(LinuxSharedMutex::setStorePath(std::string(1023, 'x').c_str()));
    EXPECT_TRUE(LinuxSharedMutex::setStorePath((std::string(1023, 'x') + "/").c_str()))
        << "too long with a final slash: true, and nothing is stored";
    EXPECT_TRUE(taken());
    EXPECT_TRUE(LinuxSharedMutex::setStorePath(std::string(1022, 'x').c_str()));
    EXPECT_FALSE(taken());
    EXPECT_TRUE(LinuxSharedMutex::setStorePath((directory_ / "").c_str()));
    EXPECT_TRUE(taken());
}

}  // namespace
}  // namespace fscanner
