#pragma once

#include <string>

#include "fscanner/platform/abstract_sync.h"

namespace fscanner {

struct SemaphoreRecord;

/// A counting semaphore between the threads of this process: objects of one name
/// share it. A new one has no unit: the first `wait` blocks until a `release`.
/// The waits are cancellation points.
class LinuxSemaphore : public AbstractSync {
public:
    /// A null name makes an object whose every operation fails.
    explicit LinuxSemaphore(const char* name);
    ~LinuxSemaphore() override;
    LinuxSemaphore(const LinuxSemaphore&) = delete;
    LinuxSemaphore& operator=(const LinuxSemaphore&) = delete;

    /// Makes one unit available.
    int release() override;
    int wait() override;
    /// Lasts whole seconds, and nearly always one more (see `syncDeadline`).
    int wait(long milliseconds) override;

    /// Whether this object was the first of its name.
    bool created() const { return created_; }

private:
    std::string name_;
    SemaphoreRecord* record_ = nullptr;
    bool created_ = false;
};

}  // namespace fscanner
