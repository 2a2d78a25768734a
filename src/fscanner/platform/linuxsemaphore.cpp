#include "fscanner/platform/linuxsemaphore.h"

#include "fscanner/platform/named_sync.h"

namespace fscanner {

// The semaphore's primitives carry the system's names on a type of our own: they
// are overloads in this namespace and must never get C linkage, or they would
// take the place of the host's.
static int sem_init(SemaphoreRecord* sem, int shared, unsigned value);
static int sem_destroy(SemaphoreRecord* sem);

struct SemaphoreRecord : SyncRecord {
    SemaphoreRecord() { sem_init(this, 0, 0); }
    ~SemaphoreRecord() { sem_destroy(this); }
    int take(const timespec* deadline);
    int give();

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

int SemaphoreRecord::take(const timespec* deadline) {
    return deadline ? sem_timedwait(this, deadline) : sem_wait(this);
}

int SemaphoreRecord::give() {
    return sem_post(this);
}

template class NamedSync<SemaphoreRecord>;

}  // namespace fscanner
