#pragma once

#include <string>

#include "fscanner/platform/abstract_sync.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {

/// A lock between processes: a record lock on a file named after the object.
///
/// It excludes no threads: the lock is the process's. Closing any descriptor of
/// the file drops it, so a process must not make a second object of a name while
/// it holds the first. Destruction removes the file, deliberately: who opens the
/// name afterwards gets a fresh file, and a lock independent of one still held on
/// the old one. What must not be lost that way takes a second lock.
class LinuxSharedMutex : public AbstractSync {
public:
    /// Opens `storePath` + `name`, made with mode 0600 when absent. A file that is
    /// no regular file, belongs to another user than us and root, or has a second
    /// link is not used: every operation then fails.
    explicit LinuxSharedMutex(const char* name);
    ~LinuxSharedMutex() override;
    LinuxSharedMutex(const LinuxSharedMutex&) = delete;
    LinuxSharedMutex& operator=(const LinuxSharedMutex&) = delete;

    /// -1 on failure.
    int release() override;
    int wait() override;
    /// Tries once per 100 ms begun and sleeps 100 ms after each failed try, also
    /// the last. A limit of 0 is -20 without a try, even when the lock is free.
    int wait(long milliseconds) override;

    /// The directory of lock files for objects made from now on, "/tmp/" at first.
    /// False for null and for a path without a final "/" longer than 1022. A path
    /// with one of 1024 or more is not taken, yet true.
    static bool setStorePath(const char* path);

private:
    Descriptor file_;
    std::string path_;

    static char storePath[1024];
};

}  // namespace fscanner
