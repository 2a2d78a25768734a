#pragma once

#include <atomic>

#include "fscanner/export.h"

namespace fscanner {

/// The process's cleanup handlers: what a host runs when it must stop
/// abnormally, so that temporary files do not stay behind. The library registers
/// a handler for each temporary file and never runs them itself.
///
/// Threads: any may register, remove and invoke at any time. What an invocation may still
/// look at is freed by a later removal.
///
/// Signals: `invokeCleanupHandlers` allocates nothing and may be called from a
/// signal handler, even one that interrupts a registration or a removal on its
/// own thread: the list is whole at every step. Call `getInstance` before the
/// signal handler is installed. The registered handlers must then themselves be
/// safe there (and must not remove registrations, which frees memory).
class FSCANNER_EXPORT FsResourceManager {
public:
    /// Gets the code of `invokeCleanupHandlers` and what it was registered with.
    using Handler = void (*)(int code, void* context);

    /// The one registry, made at the first call. At process exit it forgets all
    /// registrations without calling a handler; it stays usable after that.
    static FsResourceManager* getInstance();

    FsResourceManager(const FsResourceManager&) = delete;
    FsResourceManager& operator=(const FsResourceManager&) = delete;

    /// Registers in front of all others; duplicates are kept. A null handler is
    /// ignored, and so is one for which there is no memory.
    void addCleanupHandler(Handler handler, void* context);
    /// Removes the latest registration of this pair; an unknown pair is ignored.
    void removeCleanupHandler(Handler handler, void* context);
    /// Calls every handler with its context, the latest first. The registrations
    /// stay. A handler may remove its own registration, and no other; from a signal handler
    /// not even that, since the signal may have interrupted a removal.
    void invokeCleanupHandlers(int code);
    /// Whether handlers are being called: who has just removed a registration must not
    /// free its context then.
    FSCANNER_HIDDEN static bool isInvoking();

private:
    struct Registration;
    struct ExitCleaner;

    constexpr FsResourceManager() = default;
    FSCANNER_HIDDEN void clear();
    FSCANNER_HIDDEN void freeRetired();

    std::atomic<Registration*> head_ = nullptr;
    Registration* retired_ = nullptr;  // removed ones
};

}  // namespace fscanner
