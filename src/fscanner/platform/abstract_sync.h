#pragma once

namespace fscanner {

/// The results of operations on named synchronisation objects.
enum SyncStatus : int {
    SYNC_SUCCESS = 0,
    SYNC_TIMED_OUT = -20,
    SYNC_FAILED = -21,
};

/// A named lock or semaphore. The order of the virtual functions is fixed. The
/// implementation decides whether a name is shared by the process or the machine.
class AbstractSync {
public:
    virtual int release() = 0;
    /// Waits without limit.
    virtual int wait() = 0;
    /// Waits at most about `milliseconds`; each implementation says how exactly.
    virtual int wait(long milliseconds) = 0;
    virtual ~AbstractSync() = default;
};

}  // namespace fscanner
