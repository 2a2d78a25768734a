#pragma once

#include <functional>

#include "fscanner/export.h"

namespace fscanner {

/// Threads that a host lends to the library, which starts none. Scans give them directories to read
/// ahead, and the verification of a cached tree directories to examine; what a query finds, the
/// order of that, and the thread that the host's own objects are called on stay the same. The tasks
/// open, read and examine files, and call nothing of the host. The threads must have the rights and
/// the root directory of the one that runs the query.
///
/// The host sets one object for the whole process with `fsSetWorkers`. Several queries may use it
/// at once. It must live until every query that began while it was set has ended, and until each
/// accepted task was run or destroyed.
class FSCANNER_EXPORT FsWorkers {
public:
    virtual ~FsWorkers();
    /// How many tasks of one query may run at once, besides its own thread. Fewer are asked to
    /// where the disk answers at once: then one for each other core. Any thread.
    virtual unsigned atOnce() const = 0;
    /// Runs the task on another thread, soon: it may run until the query ends. A task that never
    /// runs costs the query only the help. A task does not throw, and may outlive the query if it
    /// was not begun before; then it returns at once. False: it was not accepted. Any thread.
    virtual bool submit(std::function<void()> task) = 0;
};

/// Sets the workers of all scans that begin later, and returns the previous ones. Null, as at the
/// start, means none. The host keeps ownership of both. Any thread.
FSCANNER_EXPORT FsWorkers* fsSetWorkers(FsWorkers* workers);

/// The current workers, or null. For use inside the library.
FsWorkers* scanWorkers();

}  // namespace fscanner
