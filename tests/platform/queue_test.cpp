#include <gtest/gtest.h>

#include <thread>

#include "fscanner/platform/offered.h"

namespace fscanner {
namespace {

std::wstring entryOf(const FS_Event& event) {
    return event.getEntry() ? event.getEntry() : L"";
}

TEST(Event, ValidityAndCopies) {
    EXPECT_FALSE(FS_Event().isValid());
    const FS_Event none(nullptr, 3);
    EXPECT_FALSE(none.isValid());
    EXPECT_EQ(none.getAction(), 160U);
    FS_Event event(L"/a", 160);
    FS_Event copy(event);
    const FS_Event& itself = event;
    event = itself;
    EXPECT_TRUE(event.isValid());
    event.setInvalid();
    EXPECT_EQ(entryOf(copy), L"/a");
    copy = event;
    EXPECT_FALSE(copy.isValid());
    EXPECT_EQ(copy.getEntry(), nullptr);
}

TEST(Queue, UrgentEventsComeFirst) {
    FS_Queue queue("fscanner_test_order");
    queue.sendQ({L"A", 1});
    queue.sendQ({L"B", 2});
    queue.sendUrgentQ({L"C", 3});
    for (const wchar_t* next : {L"C", L"A", L"B"}) EXPECT_EQ(entryOf(queue.recvQ()), next);
    EXPECT_EQ(queue.getLastError(), QUEUE_SUCCESS);
    EXPECT_FALSE(queue.recvQ(100).isValid());
    EXPECT_EQ(queue.getLastError(), QUEUE_TIMED_OUT);
    // A success leaves the last error.
    queue.sendQ({L"D", 4});
    EXPECT_EQ(entryOf(queue.recvQ(100)), L"D");
    EXPECT_EQ(queue.getLastError(), QUEUE_TIMED_OUT);
}

TEST(Queue, TheFirstOfANameIsRegistered) {
    FS_Queue first("fscanner_test_name");
    FS_Queue second("fscanner_test_name");
    EXPECT_EQ(FS_Queue::getInstance("fscanner_test_name"), &first);
    EXPECT_EQ(FS_Queue::getInstance("fscanner_test_none"), nullptr);
    // They share the count of events and not the events.
    second.sendQ({L"S", 1});
    EXPECT_FALSE(first.recvQ().isValid());
}

TEST(Queue, ThreadsMeetInIt) {
    FS_Queue queue("fscanner_test_threads");
    constexpr int kEvents = 2000;
    const auto produce = [&queue] {
        for (int i = 0; i < kEvents; ++i) queue.sendQ({L"x", 1});
    };
    std::thread one(produce);
    std::thread two(produce);
    int received = 0;
    for (int i = 0; i < 2 * kEvents; ++i) received += queue.recvQ().isValid() ? 1 : 0;
    one.join();
    two.join();
    EXPECT_EQ(received, 2 * kEvents);
}

}  // namespace
}  // namespace fscanner
