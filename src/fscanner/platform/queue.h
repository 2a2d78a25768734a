#pragma once

#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "fscanner/platform/abstract_sync.h"
#include "fscanner/platform/event.h"

namespace fscanner {

/// What `FS_Queue::getLastError` tells.
enum QueueError : int {
    QUEUE_SUCCESS = 0,
    QUEUE_FAILED = -30,     ///< the semaphore or the lock failed
    QUEUE_TIMED_OUT = -31,  ///< no event came within the limit
};

/// A named queue of events between a producer and a consumer, which find it by its
/// name. It stays registered for the life of the process, and must live as long.
///
/// A named semaphore counts the events and a named lock guards the list. Queues of one
/// name share those two and not the list, so receiving may find the list empty: that
/// gives an invalid event. The lock is one between processes, so an own mutex keeps
/// threads apart.
class FS_Queue {
public:
    /// The first queue of a name is the one that is registered.
    explicit FS_Queue(const std::string& name);
    FS_Queue(const FS_Queue&) = delete;
    FS_Queue& operator=(const FS_Queue&) = delete;

    /// Null for a name that no queue was made with.
    static FS_Queue* getInstance(const std::string& name);

    /// Adds a copy at the end (the front: it is received next). The result is that of
    /// the lock's release.
    int sendQ(const FS_Event& event);
    int sendUrgentQ(const FS_Event& event);
    /// Takes the oldest event, waiting for one, in the second form for a limited time
    /// (see `LinuxSemaphore`). Invalid on failure, with the last error set.
    FS_Event recvQ();
    FS_Event recvQ(long milliseconds);

    /// A `QueueError` of the last receive that failed; success does not clear it.
    int getLastError() const { return lastError_; }

private:
    enum class End { front, back };
    int send(const FS_Event& event, End end);
    FS_Event receive(int semaphoreStatus);
    FS_Event fail(int status);

    std::unique_ptr<AbstractSync> semaphore_;
    std::unique_ptr<AbstractSync> lock_;
    std::mutex listGuard_;
    std::list<FS_Event> events_;
    int lastError_ = QUEUE_SUCCESS;

    static std::map<std::string, FS_Queue*> queues;
};

}  // namespace fscanner
