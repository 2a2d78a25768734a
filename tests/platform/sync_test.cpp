// Named locks and semaphores, within the process and between processes, and queues of events.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

#include "fscanner/fs/fs_events.h"
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
    EXPECT_FALSE(LinuxSharedMutex::setStorePath(nullptr));
    EXPECT_FALSE(LinuxSharedMutex::setStorePath(std::string(1023, 'x').c_str()));
    for (const std::string& path : {std::string(1022, 'x'), directory_ / ""}) {
        EXPECT_TRUE(LinuxSharedMutex::setStorePath(path.c_str()));
        const LinuxSharedMutex mutex("lock");
        EXPECT_EQ(std::filesystem::exists(lockFile()), path.ends_with('/'))
            << "too long with a final slash: true, and nothing is stored";
    }
}

// ---- Queues ------------------------------------------------------------------

TEST(Queue, CopiesEventsAndTakesUrgentOnesFirst) {
    EXPECT_FALSE(FS_Event(nullptr, 3).isValid());
    FS_Event event(L"A", 160), copy(event);
    event.setInvalid();
    EXPECT_EQ(event.getEntry(), nullptr);
    FS_Queue queue("fscanner_test_order"), second("fscanner_test_order");
    queue.sendQ(copy);
    queue.sendQ({L"B", 2});
    queue.sendUrgentQ({L"C", 3});
    for (const wchar_t* next : {L"C", L"A", L"B"}) EXPECT_STREQ(queue.recvQ().getEntry(), next);
    EXPECT_EQ(queue.getLastError(), QUEUE_SUCCESS);
    EXPECT_FALSE(queue.recvQ(100).isValid());
    queue.sendQ({L"D", 4});
    EXPECT_STREQ(queue.recvQ(100).getEntry(), L"D");
    EXPECT_EQ(queue.getLastError(), QUEUE_TIMED_OUT) << "a success leaves the last error";
    // The first queue of a name is registered. The others share its count, but not its events.
    EXPECT_EQ(FS_Queue::getInstance("fscanner_test_order"), &queue);
    second.sendQ({L"S", 1});
    EXPECT_FALSE(queue.recvQ().isValid());
    EXPECT_EQ(second.takeAll().size(), 1U);
}

TEST(Queue, TakesManyEventsAtOnce) {
    FS_Queue queue("fscanner_test_many");
    EXPECT_TRUE(queue.takeAll().empty());
    queue.sendQ({L"A", 1});
    queue.sendAll({{L"B", 2}, {L"C", 3}});
    EXPECT_STREQ(queue.recvQ().getEntry(), L"A");
    const std::list<FS_Event> rest = queue.takeAll();
    ASSERT_EQ(rest.size(), 2U);
    EXPECT_STREQ(rest.front().getEntry(), L"B");
    EXPECT_FALSE(queue.recvQ(100).isValid()) << "what was taken is not counted any more";
}

}  // namespace
}  // namespace fscanner
