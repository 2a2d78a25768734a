#pragma once

#include <pthread.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <string>

#include "fscanner/common/strings.h"
#include "fscanner/platform/abstract_file.h"
#include "fscanner/platform/abstract_sync.h"

/// Offered to hosts: named locks and semaphores of one process, and files over buffered streams.
/// Only queues of events use what stands here; a reader of the engine can skip this file.

namespace fscanner {

// ---- Locks and semaphores by name -------------------------------------------

/// A lock or semaphore between the threads of this process. Objects of the same name
/// share one `Record`, which lives as long as they do. The waits are cancellation points.
///
/// `Record` is derived from `SyncRecord` and has two members, each of which returns 0 or
/// an error: `take(deadline)`, where a null deadline means no limit, and `give()`. The
/// template is instantiated beside each kind of record.
template <typename Record>
class NamedSync : public AbstractSync {
public:
    /// With a null name every operation fails.
    explicit NamedSync(const char* name);
    ~NamedSync() override;
    NamedSync(const NamedSync&) = delete;
    NamedSync& operator=(const NamedSync&) = delete;

    int release() override;
    int wait() override;
    /// Waits whole seconds, nearly always one more than asked (see `syncDeadline`).
    int wait(long milliseconds) override;

    /// Whether this object was the first of its name.
    bool created() const { return created_; }

private:
    std::string name_;
    Record* record_ = nullptr;
    bool created_ = false;
};

/// Holds a pthread mutex for a scope. A thread that is cancelled inside the scope
/// unwinds through the destructor. So code inside must not be noexcept, and must not
/// catch everything without rethrowing.
class PthreadLock {
public:
    explicit PthreadLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~PthreadLock() { pthread_mutex_unlock(&mutex_); }
    PthreadLock(const PthreadLock&) = delete;
    PthreadLock& operator=(const PthreadLock&) = delete;

private:
    pthread_mutex_t& mutex_;
};

/// The state that all objects of one name in this process share: a mutex, a condition
/// and the number of objects. Derived records add the state that the mutex guards.
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

/// Waits on the record's condition while `blocked()`. The caller holds the mutex. A
/// null deadline means no limit. Returns 0, or the error of a wait after which the
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

/// The end of a wait of `milliseconds` that starts at `now`. Deliberate: the
/// milliseconds beyond whole seconds are added to the microseconds, and a sum above
/// 999 carries one second. So a limit of 0 or 100 lasts about one second and a limit
/// of 1500 about two. About one wait in a thousand lasts a second less.
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
/// The same for a wait that starts now.
inline timespec syncDeadline(long milliseconds) {
    timeval now{};
    gettimeofday(&now, nullptr);
    return syncDeadline(now, milliseconds);
}

/// The records of one class of objects, by name.
///
/// Constant-initialised and trivially destroyed, so that it works for static objects
/// that are constructed before it or destroyed after it. It holds memory only while
/// objects exist.
template <typename Record>
class SyncRegistry {
public:
    /// The record of `name`, with one more reference. Creates it if there is none, and
    /// sets `created` to whether it did.
    Record* acquire(const std::string& name, bool& created) {
        PthreadLock lock(guard_);
        if (!records_) records_ = std::make_unique<Records>().release();
        const auto [entry, inserted] = records_->try_emplace(name);
        created = inserted;
        ++entry->second.references;
        ++instances_;
        return &entry->second;
    }

    /// Drops a reference. The last one deletes the record.
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

struct MutexRecord;
extern template class NamedSync<MutexRecord>;

/// A lock between the threads of this process. Nobody owns it: any object of the name
/// may release it, and releasing a free one does no harm.
class LinuxMutex : public NamedSync<MutexRecord> {
public:
    using NamedSync::NamedSync;
};

struct SemaphoreRecord;
extern template class NamedSync<SemaphoreRecord>;

/// A counting semaphore between the threads of this process. A new one has no unit: the
/// first `wait` blocks until a `release` makes one available.
class LinuxSemaphore : public NamedSync<SemaphoreRecord> {
public:
    using NamedSync::NamedSync;
};

// ---- Files over streams -----------------------------------------------------

/// A file over a buffered stream. Without an open stream every operation fails,
/// a transfer moves nothing, and `eof()` is true.
class StdFile : public AbstractFile {
public:
    explicit StdFile(const wchar_t* name);
    ~StdFile() override;

    bool create() override;
    bool open() override;
    /// True whenever a stream was open, even if its last bytes could not be
    /// written: ask `transferFailed()`.
    bool close() override;
    unsigned int read(void* buffer, unsigned int count) override;
    unsigned int write(const void* buffer, unsigned int count) override;
    /// True for a known origin, even if the stream refuses the offset.
    bool seek(long offset, int origin) override;
    long tell() override;
    bool eof() override;
    bool size(unsigned int* out) override;

    /// Whether reading or writing met an error, a full disk for one, since the last
    /// `create` or `open`. Certain only after `close`: a stream writes late.
    bool transferFailed() const { return transferFailed_; }

private:
    struct Close {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
    };

    bool openStream(bool emptied);

    std::unique_ptr<std::FILE, Close> stream_;
    HeapText name_;
    bool transferFailed_ = false;
};

}  // namespace fscanner
