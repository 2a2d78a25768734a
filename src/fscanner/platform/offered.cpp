#include "fscanner/platform/offered.h"

#include <climits>
#include <cwchar>
#include <new>
#include <utility>

#include "fscanner/common/utf8.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {

// ---- Locks and semaphores by name -------------------------------------------

struct MutexRecord : SyncRecord {
    MutexRecord() { init(); }
    ~MutexRecord() { destroy(); }
    int take(const timespec* deadline);
    int give();

    bool locked = false;
};

int MutexRecord::take(const timespec* deadline) {
    PthreadLock lock(mutex);
    const int error = waitWhile(*this, deadline, [&] { return locked; });
    if (error == 0) locked = true;
    return error;
}

int MutexRecord::give() {
    {
        PthreadLock lock(mutex);
        locked = false;
    }
    pthread_cond_signal(&condition);
    return 0;
}

template class NamedSync<MutexRecord>;

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

// ---- Files over streams -----------------------------------------------------

StdFile::StdFile(const wchar_t* name) : name_(name != nullptr ? ::wcsdup(name) : nullptr) {}

StdFile::~StdFile() = default;

// What `fopen` does in the modes "w+b" and "r+b", for regular files alone.
bool StdFile::openStream(bool emptied) {
    stream_.reset();
    transferFailed_ = false;
    if (!name_) return false;
    const std::unique_ptr<char[]> path(myWcsToMbs(name_.get()));
    if (!path) return false;
    Descriptor file =
        openRegularFile(path.get(), emptied ? OpenMode::emptied : OpenMode::existing, 0666);
    if (!file) return false;
    stream_.reset(::fdopen(file.get(), "r+b"));
    if (stream_) file.release();
    return stream_ != nullptr;
}

bool StdFile::create() {
    return openStream(true);
}

bool StdFile::open() {
    return openStream(false);
}

bool StdFile::close() {
    if (!stream_) return false;
    if (std::ferror(stream_.get()) != 0) transferFailed_ = true;
    if (std::fclose(stream_.release()) != 0) transferFailed_ = true;
    return true;
}

unsigned int StdFile::read(void* buffer, unsigned int count) {
    if (!stream_) return 0;
    return static_cast<unsigned>(std::fread(buffer, 1, count, stream_.get()));
}

unsigned int StdFile::write(const void* buffer, unsigned int count) {
    if (!stream_) return 0;
    const auto written = static_cast<unsigned>(std::fwrite(buffer, 1, count, stream_.get()));
    if (written < count) transferFailed_ = true;
    return written;
}

bool StdFile::seek(long offset, int origin) {
    static constexpr int whence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (!stream_ || origin < SEEK_FROM_START || origin > SEEK_FROM_END) return false;
    // An offset that is refused still counts as done (deliberate): the position stays.
    std::fseek(stream_.get(), offset, whence[origin - SEEK_FROM_START]);
    return true;
}

long StdFile::tell() {
    return stream_ ? std::ftell(stream_.get()) : -1;
}

bool StdFile::eof() {
    return !stream_ || std::feof(stream_.get()) != 0;
}

bool StdFile::size(unsigned int* out) {
    if (!stream_ || out == nullptr) return false;
    const long position = tell();
    std::fseek(stream_.get(), 0, SEEK_END);
    const long end = tell();
    std::fseek(stream_.get(), position, SEEK_SET);
    if (end < 0 || end > static_cast<long>(UINT_MAX)) return false;
    *out = static_cast<unsigned>(end);
    return true;
}

}  // namespace fscanner
