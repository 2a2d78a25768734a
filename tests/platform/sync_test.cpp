// Named locks and semaphores, within the process and between processes, and queues of events.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

#include "fscanner/platform/linuxsync.h"
#include "fscanner/platform/offered.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

using std::chrono::milliseconds;

// ---- Within the process ------------------------------------------------------

// A limit's milliseconds count as microseconds, and 1000 of those as a second.
TEST(SyncDeadline, TakesMillisecondsForMicroseconds) {
    const auto deadline = [](timeval now, long limit) {
        const timespec end = syncDeadline(now, limit);
        return std::pair(end.tv_sec, end.tv_nsec);
    };
    EXPECT_EQ(deadline({100, 500000}, 1500), std::pair(102L, 499500000L));
    EXPECT_EQ(deadline({100, 999}, 0), std::pair(100L, 999000L));
    EXPECT_EQ(deadline({100, 999}, 1), std::pair(101L, 0L));
}

TEST(LinuxMutex, ExcludesObjectsOfItsNameForAsLongAsThereAreSome) {
    auto first = std::make_unique<LinuxMutex>("lock"),
         second = std::make_unique<LinuxMutex>("lock");
    EXPECT_TRUE(first->created());
    EXPECT_FALSE(second->created());
    EXPECT_EQ(first->wait(), 0);
    EXPECT_EQ(second->wait(0), SYNC_TIMED_OUT);
    EXPECT_EQ(LinuxMutex("another").wait(0), 0);
    EXPECT_EQ(second->release() | second->release(), 0) << "nobody owns it, and it may be free";
    EXPECT_EQ(second->wait(), 0);
    first.reset();
    EXPECT_EQ(LinuxMutex("lock").wait(0), SYNC_TIMED_OUT) << "held through the second object";
    second.reset();
    EXPECT_EQ(LinuxMutex("lock").wait(0), 0);
    EXPECT_EQ(LinuxMutex(nullptr).wait(), SYNC_FAILED);
}

// Made before all objects of a test and destroyed after them.
LinuxMutex lateMutex("late");
LinuxSemaphore lateSemaphore("late");

TEST(LinuxSemaphore, CountsUnits) {
    LinuxSemaphore producer("units"), consumer("units");
    EXPECT_TRUE(LinuxMutex("units").created()) << "locks and semaphores have names of their own";
    EXPECT_EQ(producer.release() | producer.release(), 0);
    EXPECT_EQ(consumer.wait() | consumer.wait(100), 0);
    EXPECT_EQ(consumer.wait(0), SYNC_TIMED_OUT);
    EXPECT_EQ(producer.release(), 0);
    EXPECT_EQ(consumer.wait(), 0) << "a wait in vain takes no unit";
}

void* waitForever(void* sync) {
    static_cast<AbstractSync*>(sync)->wait();
    return nullptr;
}

// A cancelled waiter must release the record's inner mutex. Otherwise nothing could
// be released or taken any more.
TEST(InProcessSync, WakesWaitersAndSurvivesCancelledOnes) {
    LinuxMutex mutex("wake");
    LinuxSemaphore semaphore("wake");
    ASSERT_EQ(mutex.wait(), 0);
    for (AbstractSync* sync : std::initializer_list<AbstractSync*>{&mutex, &semaphore}) {
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

// ---- Between processes -------------------------------------------------------

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
    const pid_t holder = fork();
    if (holder == 0) {
        LinuxSharedMutex taken("lock");
        taken.wait();
        for (;;) pause();
    }
    while (mutex.wait(1) == 0) mutex.release();  // until the holder has it
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
        LinuxSharedMutex first("lock"), second("lock");
        EXPECT_EQ(first.wait() | second.wait(), 0);
        EXPECT_EQ(std::filesystem::status(lockFile()).permissions(), std::filesystem::perms(0600));
    }
    EXPECT_FALSE(std::filesystem::exists(lockFile()));
    ASSERT_EQ(mkfifo(lockFile().c_str(), 0600), 0);
    for (const char* useless : {"lock", "no directory/lock", static_cast<const char*>(nullptr)}) {
        LinuxSharedMutex mutex(useless);
        EXPECT_EQ(mutex.wait(), SYNC_FAILED);
        EXPECT_EQ(mutex.wait(100), SYNC_FAILED);
        EXPECT_EQ(mutex.release(), -1);
    }
}

TEST_F(SharedMutex, StorePathEndsInASlashAndFits) {
    const std::string longest(1022, 'x');
    EXPECT_FALSE(LinuxSharedMutex::setStorePath(nullptr));
    EXPECT_FALSE(LinuxSharedMutex::setStorePath((longest + "x").c_str()));
    for (const auto& [path, isHere] :
         {std::pair(longest + "x/", true), {longest, false}, {directory_ / "", true}}) {
        EXPECT_TRUE(LinuxSharedMutex::setStorePath(path.c_str()));
        const LinuxSharedMutex mutex("lock");
        EXPECT_EQ(std::filesystem::exists(lockFile()), isHere)
            << "too long with a final slash: true, and nothing is stored";
    }
}

// ---- Queues ------------------------------------------------------------------

std::wstring entryOf(const FS_Event& event) {
    return event.getEntry() ? event.getEntry() : L"";
}

TEST(Queue, CopiesEventsAndTakesUrgentOnesFirst) {
    EXPECT_FALSE(FS_Event().isValid());
    EXPECT_FALSE(FS_Event(nullptr, 3).isValid());
    EXPECT_EQ(FS_Event(nullptr, 3).getAction(), 160U);
    FS_Event event(L"A", 160), copy(event);
    event.setInvalid();
    EXPECT_EQ(event.getEntry(), nullptr);
    FS_Queue queue("fscanner_test_order"), second("fscanner_test_order");
    queue.sendQ(copy);
    queue.sendQ({L"B", 2});
    queue.sendUrgentQ({L"C", 3});
    for (const wchar_t* next : {L"C", L"A", L"B"}) EXPECT_EQ(entryOf(queue.recvQ()), next);
    EXPECT_EQ(queue.getLastError(), QUEUE_SUCCESS);
    EXPECT_FALSE(queue.recvQ(100).isValid());
    queue.sendQ({L"D", 4});
    EXPECT_EQ(entryOf(queue.recvQ(100)), L"D");
    EXPECT_EQ(queue.getLastError(), QUEUE_TIMED_OUT) << "a success leaves the last error";
    // The first queue of a name is registered. The others share its count, but not its events.
    EXPECT_EQ(FS_Queue::getInstance("fscanner_test_order"), &queue);
    EXPECT_EQ(FS_Queue::getInstance("fscanner_test_none"), nullptr);
    second.sendQ({L"S", 1});
    EXPECT_FALSE(queue.recvQ().isValid());
}

TEST(Queue, ThreadsMeetInIt) {
    FS_Queue queue("fscanner_test_threads");
    constexpr int kEvents = 2000;
    const auto produce = [&queue] {
        for (int i = 0; i < kEvents; ++i) queue.sendQ({L"x", 1});
    };
    std::thread one(produce), two(produce);
    for (int i = 0; i < 2 * kEvents; ++i) EXPECT_TRUE(queue.recvQ().isValid());
    one.join();
    two.join();
}

}  // namespace
}  // namespace fscanner
