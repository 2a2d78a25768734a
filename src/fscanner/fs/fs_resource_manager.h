#pragma once

#include <atomic>

#include "fscanner/export.h"

namespace fscanner {

/// The cleanup handlers of the process. A host runs them when it must stop abnormally, so that
/// no temporary files stay behind. The library registers a handler for each named temporary
/// file. It never runs the handlers itself.
///
/// Threads: any thread may register, remove and invoke at any time. A registration that is
/// removed during an invocation is freed by a later removal, because the invocation may still
/// read it.
///
/// Signals: `invokeCleanupHandlers` allocates nothing and takes no lock, so a signal handler
/// may call it, even one that interrupts a registration or a removal on its own thread: the
/// list is consistent at every step. Call `getInstance` once before the signal handler is
/// installed. The registered handlers must then be safe in a signal handler, too. They must not
/// remove registrations there, because that frees memory.
class FSCANNER_EXPORT FsResourceManager {
public:
    /// Called with the code given to `invokeCleanupHandlers` and the registered context.
    using Handler = void (*)(int code, void* context);

    /// The only instance, made at the first call; never null, not to be deleted. At process
    /// exit it drops all registrations without calling a handler. It stays usable after that.
    static FsResourceManager* getInstance();

    FsResourceManager(const FsResourceManager&) = delete;
    FsResourceManager& operator=(const FsResourceManager&) = delete;

    /// Registers a handler in front of all others. Duplicates are kept. `context` stays the
    /// caller's and must live until the removal. A null handler is ignored. Without memory
    /// nothing is registered.
    void addCleanupHandler(Handler handler, void* context);
    /// Removes the latest registration of this handler and context. An unknown pair is ignored.
    void removeCleanupHandler(Handler handler, void* context);
    /// Calls every handler with its context, the latest registration first. The registrations
    /// stay. A handler may remove its own registration, and no other. In a signal handler it
    /// must not even do that, because the signal may have interrupted a removal.
    void invokeCleanupHandlers(int code);
    /// Whether an invocation is running. If so, the context of a registration that was just
    /// removed must not be freed, because the handler may still read it.
    FSCANNER_HIDDEN static bool isInvoking();

private:
    struct Registration;
    struct ExitCleaner;

    constexpr FsResourceManager() = default;
    FSCANNER_HIDDEN void clear();
    FSCANNER_HIDDEN void freeRetired();

    std::atomic<Registration*> head_ = nullptr;
    Registration* retired_ = nullptr;  // removed, not yet freed
};

}  // namespace fscanner
