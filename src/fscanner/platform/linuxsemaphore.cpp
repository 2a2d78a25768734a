#include "fscanner/platform/linuxsemaphore.h"

#include <cerrno>

#include "fscanner/platform/sync_registry.h"

namespace fscanner {

// The semaphore's primitives carry the system's names on a type of our own: they
// are overloads in this namespace and must never get C linkage, or they would
// take the place of the host's.
static int sem_init(SemaphoreRecord* sem, int shared, unsigned value);
static int sem_destroy(SemaphoreRecord* sem);

struct SemaphoreRecord : SyncRecord {
    SemaphoreRecord() { sem_init(this, 0, 0); }
    ~SemaphoreRecord() { sem_destroy(this); }

    /// The available units, negated: -2 means two.
    int counter = 0;
};

static int sem_init(SemaphoreRecord* sem, int /*shared*/, unsigned value) {
    sem->counter = static_cast<int>(value);
    sem->init();
    return 0;
}

static int sem_destroy(SemaphoreRecord* sem) {
    sem->destroy();
    return 0;
}

static int sem_timedwait(SemaphoreRecord* sem, const timespec* deadline) {
    PthreadLock lock(sem->mutex);
    const int error = waitWhile(*sem, deadline, [&] { return sem->counter == 0; });
    if (error == 0) ++sem->counter;
    return error;
}

static int sem_wait(SemaphoreRecord* sem) {
    return sem_timedwait(sem, nullptr);
}

static int sem_post(SemaphoreRecord* sem) {
    PthreadLock lock(sem->mutex);
    if (--sem->counter <= 0) pthread_cond_signal(&sem->condition);
    return 0;
}

namespace {

constinit SyncRegistry<SemaphoreRecord> semaphores;

}  // namespace

LinuxSemaphore::LinuxSemaphore(const char* name) {
    if (!name) return;
    name_ = name;
    record_ = semaphores.acquire(name_, created_);
}

LinuxSemaphore::~LinuxSemaphore() {
    if (record_) semaphores.drop(name_);
}

int LinuxSemaphore::release() {
    return record_ ? sem_post(record_) : SYNC_FAILED;
}

int LinuxSemaphore::wait() {
    return record_ && sem_wait(record_) == 0 ? SYNC_SUCCESS : SYNC_FAILED;
}

int LinuxSemaphore::wait(long milliseconds) {
    if (!record_) return SYNC_FAILED;
    const timespec deadline = syncDeadline(milliseconds);
    const int error = sem_timedwait(record_, &deadline);
    if (error == 0) return SYNC_SUCCESS;
    return error == ETIMEDOUT ? SYNC_TIMED_OUT : SYNC_FAILED;
}

}  // namespace fscanner
