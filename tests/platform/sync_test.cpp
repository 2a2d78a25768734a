// Named locks and semaphores, within the process and between processes.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <memory>
#include <thread>

#include "fscanner/platform/linuxsync.h"
#include "fscanner/platform/offered.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

using std::chrono::milliseconds;

// A limit's milliseconds count as microseconds, and 1000 of those as a second.
TEST(SyncDeadline, TakesMillisecondsForMicroseconds) {
    const auto deadline = [](timeval now, long limit) {
        const timespec end = syncDeadline(now, limit);
        return std::pair(end.tv_sec, end.tv_nsec);
    };
    EXPECT_EQ(deadline({100, 500000}, 1500), std::pair(102L, 499500000L));
    EXPECT_EQ(deadline({100, 999}, 0), std::pair(100L, 999000L));
    EXPECT_EQ(deadline({100, 999}, 1), std::pair(101L, 0L));
    EXPECT_EQ(deadline({100, 400}, 2500), std::pair(102L, 900000L));
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
    EXPECT_EQ(consumer.wait(0), SYNC_TIMED_OUT);
    EXPECT_EQ(producer.release(), 0);
    EXPECT_EQ(consumer.wait(), 0) << "a wait in vain takes no unit";
}

void* waitForever(void* sync) {
    static_cast<AbstractSync*>(sync)->wait();
    return nullptr;
}

// A cancelled waiter must not keep the record's inner mutex: nothing could be
// released or taken any more.
TEST(InProcessSync, WakesWaitersAndSurvivesCancelledOnes) {
    LinuxMutex mutex("wake");
    LinuxSemaphore semaphore("wake");
    ASSERT_EQ(mutex.wait(), 0);
    for (AbstractSync* sync :
         {static_cast<AbstractSync*>(&mutex), static_cast<AbstractSync*>(&semaphore)}) {
        pthread_t cancelled;
        ASSERT_EQ(pthread_create(&cancelled, nullptr, waitForever, sync), 0);
        std::this_thread::sleep_for(milliseconds(50));
        ASSERT_EQ(pthread_cancel(cancelled), 0);
        void* result = nullptr;
        ASSERT_EQ(pthread_join(cancelled, &result), 0);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        std::thread waiter(waitForever, sync);
        std::this_thread::sleep_for(milliseconds(50));
        EXPECT_EQ(sync->release(), 0);
        waiter.join();
    }
}

class SharedMutex : public testing::Test {
protected:
    SharedMutex() { EXPECT_TRUE(LinuxSharedMutex::setStorePath(directory_.path().c_str())); }
    ~SharedMutex() override { LinuxSharedMutex::setStorePath("/tmp/"); }

    std::string lockFile() const { return directory_ / "lock"; }

    TemporaryDirectory directory_;
};

TEST_F(SharedMutex, TimesOutInTriesOfAHundredMilliseconds) {
    LinuxSharedMutex mutex("lock");
    EXPECT_EQ(mutex.wait(0), SYNC_TIMED_OUT) << "no try at all, though it is free";
    EXPECT_EQ(mutex.wait(-5), SYNC_TIMED_OUT);
    const pid_t holder = fork();
    if (holder == 0) {
        LinuxSharedMutex taken("lock");
        taken.wait();
        for (;;) pause();
    }
    while (mutex.wait(1) == 0) mutex.release();  // until it is the holder's
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(mutex.wait(250), SYNC_TIMED_OUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(300))
        << "three tries, a sleep after each";
    std::thread killer([&] { kill(holder, SIGKILL); });
    EXPECT_EQ(mutex.wait(), 0);
    killer.join();
    waitpid(holder, nullptr, 0);
    EXPECT_EQ(mutex.release(), 0);
    EXPECT_EQ(mutex.wait(1), 0);
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
    ASSERT_EQ(mkfifo(lockFile().c_str(), 0600), 0);
    const auto expectUseless = [](const char* name) {
        LinuxSharedMutex mutex(name);
        EXPECT_EQ(mutex.wait(), SYNC_FAILED);
        EXPECT_EQ(mutex.wait(100), SYNC_FAILED);
        EXPECT_EQ(mutex.release(), -1);
    };
    for (const char* name : {"lock", "no directory/lock", static_cast<const char*>(nullptr)})
        expectUseless(name);
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
