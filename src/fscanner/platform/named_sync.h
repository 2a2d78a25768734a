#pragma once

#include <pthread.h>
#include <sys/time.h>

#include <cerrno>
#include <ctime>
#include <map>
#include <memory>
#include <string>

#include "fscanner/platform/abstract_sync.h"

namespace fscanner {

/// A lock or semaphore between the threads of this process: objects of one name share
/// one `Record`, which lives as long as they do. The waits are cancellation points.
///
/// Its members are below, and instantiated beside each kind of record.
template <typename Record>
class NamedSync : public AbstractSync {
public:
    /// A null name makes an object whose every operation fails.
    explicit NamedSync(const char* name);
    ~NamedSync() override;
    NamedSync(const NamedSync&) = delete;
    NamedSync& operator=(const NamedSync&) = delete;

    int release() override;
    int wait() override;
    /// Lasts whole seconds, and nearly always one more (see `syncDeadline`).
    int wait(long milliseconds) override;

    /// Whether this object was the first of its name.
    bool created() const { return created_; }

private:
    std::string name_;
    Record* record_ = nullptr;
    bool created_ = false;
};

/// Holds a pthread mutex for a scope. A thread cancelled inside the scope unwinds
/// through the destructor, so nothing between may swallow or forbid unwinding.
class PthreadLock {
public:
    explicit PthreadLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~PthreadLock() { pthread_mutex_unlock(&mutex_); }
    PthreadLock(const PthreadLock&) = delete;
    PthreadLock& operator=(const PthreadLock&) = delete;

private:
    pthread_mutex_t& mutex_;
};

/// What all objects of one name in this process share: a mutex, a condition and
/// the number of objects. The state they guard is the derived record's.
struct SyncRecord {
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    unsigned references = 0;

    void init() {
        pthread_mutex_init(&mutex, nullptr);
        pthread_cond_init(&condition, nullptr);
    }
    void destroy() {
        pthread_cond_destroy(&condition);
        pthread_mutex_destroy(&mutex);
    }
};

/// Waits on the record's condition, its mutex held, while `blocked()`. A null
/// deadline waits without limit. 0, or the error of a wait after which the
/// record is still blocked. A cancellation point.
template <typename Blocked>
int waitWhile(SyncRecord& record, const timespec* deadline, Blocked blocked) {
    while (blocked()) {
        const int error = deadline
                              ? pthread_cond_timedwait(&record.condition, &record.mutex, deadline)
                              : pthread_cond_wait(&record.condition, &record.mutex);
        if (error != 0 && blocked()) return error;
    }
    return 0;
}

/// The end of a wait of `milliseconds` that starts at `now`. The milliseconds
/// beyond whole seconds are added to the microseconds, and anything above 999
/// carries a second, deliberately: a limit of 0 or 100 lasts about one second,
/// 1500 about two, and one in a thousand a second less.
inline timespec syncDeadline(timeval now, long milliseconds) {
    timespec deadline{};
    deadline.tv_sec = now.tv_sec + milliseconds / 1000;
    long rest = now.tv_usec + milliseconds % 1000;
    if (rest > 999) {
        ++deadline.tv_sec;
        rest -= 1000;
    }
    deadline.tv_nsec = rest * 1000;
    return deadline;
}
/// The same from the present.
inline timespec syncDeadline(long milliseconds) {
    timeval now{};
    gettimeofday(&now, nullptr);
    return syncDeadline(now, milliseconds);
}

/// The records of one class of objects by name.
///
/// Constant-initialised and never destroyed, so that objects in static storage
/// may come before it and go after it; it holds memory only while objects exist.
template <typename Record>
class SyncRegistry {
public:
    /// The record of `name`, made on first use (`created` tells), one reference more.
    Record* acquire(const std::string& name, bool& created) {
        PthreadLock lock(guard_);
        if (!records_) records_ = std::make_unique<Records>().release();
        const auto [entry, inserted] = records_->try_emplace(name);
        created = inserted;
        ++entry->second.references;
        ++instances_;
        return &entry->second;
    }

    /// Drops a reference; the record goes with the last one.
    void drop(const std::string& name) {
        PthreadLock lock(guard_);
        const auto entry = records_->find(name);
        if (--entry->second.references == 0) records_->erase(entry);
        if (--instances_ == 0) {
            std::unique_ptr<Records> unused(records_);
            records_ = nullptr;
        }
    }

private:
    using Records = std::map<std::string, Record>;

    pthread_mutex_t guard_ = PTHREAD_MUTEX_INITIALIZER;
    Records* records_ = nullptr;
    unsigned instances_ = 0;
};

template <typename Record>
constinit SyncRegistry<Record> syncRegistry;

// A record says how it is taken, until a deadline or without one, and given back: 0 or
// an error.

template <typename Record>
NamedSync<Record>::NamedSync(const char* name) {
    if (!name) return;
    name_ = name;
    record_ = syncRegistry<Record>.acquire(name_, created_);
}

template <typename Record>
NamedSync<Record>::~NamedSync() {
    if (record_) syncRegistry<Record>.drop(name_);
}

template <typename Record>
int NamedSync<Record>::release() {
    return record_ && record_->give() == 0 ? SYNC_SUCCESS : SYNC_FAILED;
}

template <typename Record>
int NamedSync<Record>::wait() {
    return record_ && record_->take(nullptr) == 0 ? SYNC_SUCCESS : SYNC_FAILED;
}

template <typename Record>
int NamedSync<Record>::wait(long milliseconds) {
    if (!record_) return SYNC_FAILED;
    const timespec deadline = syncDeadline(milliseconds);
    const int error = record_->take(&deadline);
    if (error == 0) return SYNC_SUCCESS;
    return error == ETIMEDOUT ? SYNC_TIMED_OUT : SYNC_FAILED;
}

}  // namespace fscanner
