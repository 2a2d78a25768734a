#pragma once

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "fscanner/export.h"

namespace fscanner {

class AbstractSync;

/// What the action of an event says of the path that it names. A change of one path may be told in
/// several events, or in one event with several bits. An event may also come late: what it says
/// was true once, and only a look at the disk tells what is.
enum FsEventAction : unsigned {
    FS_EVENT_CREATED = 0x1,      ///< an entry was made: also a further name of a file
    FS_EVENT_DELETED = 0x2,      ///< an entry was removed
    FS_EVENT_MOVED_FROM = 0x4,   ///< an entry went to another name or directory
    FS_EVENT_MOVED_TO = 0x8,     ///< an entry came from another name or directory
    FS_EVENT_WRITTEN = 0x10,     ///< the content of a file was changed
    FS_EVENT_ATTRIBUTES = 0x20,  ///< times, owner, permissions or such were changed
    FS_EVENT_DIRECTORY = 0x40,   ///< with others: the entry is a directory
    FS_EVENT_OVERFLOW = 0x1000,  ///< events were lost; the path is empty or that of a watched tree
    /// No events come any more of the watched tree with this path, or of a directory in a tree and
    /// all below it: that of the tree goes on.
    FS_EVENT_UNWATCHED = 0x2000,
};

/// One change of the file system: the absolute path concerned (owned) and an action, a combination
/// of `FsEventAction`.
///
/// The action 160 marks an invalid event. An event is valid when it has an entry or
/// another action.
class FSCANNER_EXPORT FS_Event {
public:
    /// The action of an event that says nothing.
    static constexpr unsigned kInvalidAction = 160;

    /// Invalid.
    FS_Event() = default;
    /// Invalid, whatever the action, when `entry` is null or cannot be copied.
    FS_Event(const wchar_t* entry, unsigned action);
    /// A source without an entry gives an invalid event.
    FS_Event(const FS_Event& other);
    FS_Event& operator=(const FS_Event& other);
    ~FS_Event() = default;

    /// Frees the entry and makes the event invalid.
    void setInvalid();
    /// Whether the event has an entry or an action other than `kInvalidAction`.
    bool isValid() const { return entry_ || action_ != kInvalidAction; }
    /// A combination of `FsEventAction`, or `kInvalidAction`.
    unsigned getAction() const { return action_; }
    /// Owned by the event; null when it has none.
    const wchar_t* getEntry() const { return entry_.get(); }

private:
    std::unique_ptr<wchar_t[]> entry_;
    unsigned action_ = kInvalidAction;
};

/// What `FS_Queue::getLastError` tells.
enum QueueError : int {
    QUEUE_SUCCESS = 0,
    QUEUE_FAILED = -30,     ///< the semaphore or the lock failed
    QUEUE_TIMED_OUT = -31,  ///< no event came within the limit
};

/// A named queue of events between a producer and a consumer, which find it by its
/// name. Any thread may send and receive.
///
/// A named semaphore counts the events and a named lock guards the list. Queues of one
/// name share those two and not the list, so receiving may find the list empty: that
/// gives an invalid event. The lock is one between processes, so an own mutex keeps
/// threads apart.
class FSCANNER_EXPORT FS_Queue {
public:
    /// The first queue of a name is the one that is registered, until it is destroyed.
    explicit FS_Queue(const std::string& name);
    FS_Queue(const FS_Queue&) = delete;
    FS_Queue& operator=(const FS_Queue&) = delete;
    ~FS_Queue();

    /// Null for a name that no queue was made with.
    static FS_Queue* getInstance(const std::string& name);

    /// Adds a copy at the end (the front: it is received next). The result is that of
    /// the lock's release.
    int sendQ(const FS_Event& event);
    int sendUrgentQ(const FS_Event& event);
    /// Takes the oldest event, waiting for one, in the second form for a limited time: whole
    /// seconds, and mostly one more than asked. Invalid on failure, with the last error set.
    FS_Event recvQ();
    FS_Event recvQ(long milliseconds);

    /// The same for many events, without the lock between processes: adds them in their order, and
    /// takes all that are there, none if there are none.
    void sendAll(std::list<FS_Event> events);
    std::list<FS_Event> takeAll();

    /// A `QueueError` of the last receive that failed; success does not clear it.
    int getLastError() const { return lastError_; }

private:
    enum class End { front, back };
    FSCANNER_HIDDEN int send(const FS_Event& event, End end);
    FSCANNER_HIDDEN FS_Event receive(int semaphoreStatus);
    FSCANNER_HIDDEN FS_Event fail(int status);

    std::unique_ptr<AbstractSync> semaphore_;
    std::unique_ptr<AbstractSync> lock_;
    std::mutex listGuard_;
    std::list<FS_Event> events_;
    int lastError_ = QUEUE_SUCCESS;

    FSCANNER_HIDDEN static std::map<std::string, FS_Queue*> queues;
};

}  // namespace fscanner
