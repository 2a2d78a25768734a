#pragma once

#include <memory>

#include "fscanner/platform/abstract_sync.h"
#include "fscanner/platform/linuxfile.h"

namespace fscanner {

class Runnable;
class StdFile;
class Thread;

/// Where the rest of the library gets its files, locks and sleeps from.
/// The names are wide; an object is made whether or not its file exists.
class SysFactory {
public:
    /// Null for a null name.
    static std::unique_ptr<LinuxMmFile> createMmFile(const wchar_t* name);
    /// A lock between processes. Null for a null name.
    static std::unique_ptr<AbstractSync> createMutex(const wchar_t* name);
    /// Returns early when a signal arrives.
    static void sleep(unsigned int milliseconds);

    // ---- Offered to hosts; nothing in fscanner uses these (offered.h) -------

    /// Null for a null name.
    static std::unique_ptr<StdFile> createStdFile(const wchar_t* name);
    /// A semaphore within this process. Null for a null name.
    static std::unique_ptr<AbstractSync> createSemaphore(const wchar_t* name);
    /// Always null: there are no threads, and callers cope with that.
    static Thread* createThread(Runnable* body);
    static Thread* createThread(Runnable* body, long parameter);
};

}  // namespace fscanner
