#pragma once

#include <sys/stat.h>

#include <string>
#include <vector>

#include "fscanner/discovery/mount_map.h"
#include "fscanner/discovery/path_info.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/platform/directory.h"
#include "fscanner/store/text_test.h"

namespace fscanner {

/// The one directory walk: its request, and the sink that it reports to. The direct scan
/// and the cache build are two sinks of it; their logs differ by a prefix.

/// How a walk ended. It has also finished after directories that it skipped.
enum class [[nodiscard]] WalkStatus{finished, timedOut};

/// What an errno of opening or examining something means for its search.
FsSkipReason skipReason(int error);

/// One entry while it is visited. It answers lazily: a walk by name alone never
/// costs an `lstat`.
class WalkEntry {
public:
    /// The name, wide and as bytes; both terminated. It is widened when it is asked for.
    const std::wstring& name() const;
    const char* nameBytes() const { return entry_.name.data(); }
    /// The bytes of the name, for a test of them.
    StoredText storedName() const {
        const std::size_t size = entry_.name.size();
        return {entry_.name.data(), size, size + DirectoryEntries::kReadableBehind};
    }
    /// The directory, ending in "/".
    const std::wstring& directory() const { return *directory_; }
    /// Changes whenever `directory()` does; never 0.
    unsigned long long directoryNumber() const { return directoryNumber_; }
    /// What the system says of the entry, asked once. Null when it cannot be examined.
    const struct stat* info();

private:
    friend class Walk;
    enum class Examined { no, yes, failed };
    /// Why it could not be examined; 0 when it was, or was not asked for.
    int error() const { return examined_ == Examined::failed ? error_ : 0; }

    DirectoryEntries::Entry entry_;
    mutable std::wstring name_;
    mutable bool widened_ = false;
    const std::wstring* directory_ = nullptr;
    const Directory* open_ = nullptr;
    unsigned long long directoryNumber_ = 0;
    Examined examined_ = Examined::no;
    int error_ = 0;
    struct stat info_ {};
};

/// What a walk does with each thing it meets.
class WalkSink {
public:
    virtual ~WalkSink() = default;
    /// A file (anything but a directory) inside the included and outside the
    /// excluded paths.
    virtual void file(WalkEntry& entry) = 0;
    /// A subdirectory about to be entered; each is followed by one `leave`.
    virtual void enter(const WalkEntry& entry) = 0;
    virtual void leave() = 0;
    /// The directory entered last was not wholly seen. True: the sink tells the observer
    /// of it later.
    virtual bool tellsLater(FsSkipReason, int /*error*/) { return false; }
    /// False ends the walk soon, like a time-out: nothing can be done with what it meets.
    virtual bool goesOn() const { return true; }
};

/// How the log lines of one kind of walk begin, and which of them it has written already.
struct LogPrefix {
    const char* text;      ///< "::fs_scan" or "FS_Cache::scan"
    struct DfsState* dfs;  ///< not owned
};

/// Where a walk starts and what bounds it. Refers to the caller's objects.
struct WalkRequest {
    const wchar_t* path;  ///< absolute and free of links
    bool recursive;
    const DriveInfo& drive;
    const std::vector<PathInfo>& include;
    const std::vector<PathInfo>& exclude;
    bool caseSensitive;
    long long timeoutMilliseconds;
    /// Other drives, which the walk does not enter. May be null.
    const MountMap* mounts = nullptr;
};

/// Walks the tree depth first. Entries of a directory come from the last one that
/// the system delivers to the first. `timedOut` when the time ran out, which is checked on
/// entering a directory and now and then within one, or when the observer or the sink
/// said stop.
WalkStatus walkTree(const WalkRequest& request, WalkSink& sink, const LogPrefix& log);

}  // namespace fscanner
