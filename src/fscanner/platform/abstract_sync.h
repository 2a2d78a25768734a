#pragma once

namespace fscanner {

/// What the operations of named synchronisation objects return.
enum SyncStatus : int {
    SYNC_SUCCESS = 0,
    SYNC_TIMED_OUT = -20,
    SYNC_FAILED = -21,
};

/// A named lock or semaphore. The order of the operations is fixed. How far the
/// name reaches (the process or the machine) is the implementation's matter.
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
