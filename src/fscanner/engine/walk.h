#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "fscanner/common/stored_text.h"
#include "fscanner/discovery/mount_map.h"
#include "fscanner/discovery/path_info.h"
#include "fscanner/engine/read_ahead.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/platform/directory.h"

namespace fscanner {

/// The one directory walk: its request, and the sink that it reports to. The direct scan
/// and the cache build are two sinks of it; their logs differ by a prefix.

/// How a walk ended. It has also finished after directories that it skipped.
enum class [[nodiscard]] WalkStatus{finished, timedOut};

/// The reason to report for something that could not be opened or examined with this errno.
FsSkipReason skipReason(int error);

/// Which entries below a path are asked for.
struct EntryChoice {
    unsigned kinds = FS_KINDS_BUT_DIRECTORIES;
    FsDepthRange depth = {};

    bool has(EntryType type) const { return (kinds & static_cast<unsigned>(type)) != 0; }
    bool has(unsigned entryDepth) const {
        return depth.least <= entryDepth && entryDepth <= depth.most;
    }
    bool hasAllFiles() const {
        return (kinds & FS_KINDS_BUT_DIRECTORIES) == FS_KINDS_BUT_DIRECTORIES;
    }
};

/// The entry that a walk is visiting. It is examined only on request: a walk that needs names
/// alone calls no `lstat`.
class WalkEntry {
public:
    /// The name as wide text, converted at the first call.
    const std::wstring& name() const;
    /// The bytes of the name, terminated.
    const char* nameBytes() const { return entry_.name.data(); }
    /// The same bytes, with their length and the length of the readable memory.
    StoredText storedName() const {
        const std::size_t size = entry_.name.size();
        return {entry_.name.data(), size, size + DirectoryEntries::kReadableBehind};
    }
    /// The directory, ending in "/".
    const std::wstring& directory() const { return *directory_; }
    /// A number of the directory, unique within the walk; never 0.
    unsigned long long directoryNumber() const { return directoryNumber_; }
    /// The result of `lstat`, which is called once. Null if the entry cannot be examined. In a walk
    /// that follows links, the result of `stat` where that succeeds.
    const struct stat* info();
    /// A mount point that is not examined, as its server may be dead.
    bool isUntouched() const { return examined_ == Examined::never; }
    bool isDirectory() const { return entry_.type == EntryType::directory; }

private:
    friend class Walk;
    enum class Examined { no, yes, failed, never };
    void follow();
    void settleType();
    void takeFacts(ReadDirectory& read);
    /// The errno of the failed examination; 0 if it succeeded or was not requested.
    int error() const { return examined_ == Examined::failed ? error_ : 0; }

    DirectoryEntries::Entry entry_;
    mutable std::wstring name_;
    mutable bool widened_ = false;
    const std::wstring* directory_ = nullptr;
    const Directory* open_ = nullptr;
    unsigned long long directoryNumber_ = 0;
    bool followed_ = false;  // it was a link, or of an unknown type
    Examined examined_ = Examined::no;
    int error_ = 0;
    struct stat info_ {};
};

/// Receives the entries that a walk visits. The direct scan and the cache build differ only in
/// their sinks.
class WalkSink {
public:
    virtual ~WalkSink() = default;
    /// Called for each entry of the requested kinds that the included paths cover and the excluded
    /// paths do not; for a directory before it is entered.
    virtual void file(WalkEntry& entry) = 0;
    /// Called for each subdirectory before it is opened, and once more with `leave` after it,
    /// also if it could not be opened. A walk that is stopped leaves out the last `leave` calls.
    virtual void enter(const WalkEntry& entry) = 0;
    virtual void leave() = 0;
    /// Asked about each subdirectory that the walk would enter, with its path. False: it is left
    /// out, and neither `enter` nor `tellsLater` is called for it.
    virtual bool wants(const WalkEntry& /*directory*/, const std::wstring& /*path*/) {
        return true;
    }
    /// Called for each directory that was opened, also the first one of the walk, before its
    /// entries are read.
    /// `ahead` is the stamp that a worker took of it before it read them; null: it was not read
    /// yet.
    virtual void opened(const Directory& /*directory*/, const DirectoryStamp* /*ahead*/) {}
    /// Called for a directory that is not searched, or only in part. It is the current one (entered
    /// last and not left yet), or, if the reason is `excluded` or `otherFileSystem`, one that is
    /// not entered. True if the sink tells the observer later; otherwise the walk does now.
    virtual bool tellsLater(FsSkipReason, int /*error*/) { return false; }
    /// False stops the walk soon, like a time-out, because the sink cannot use more entries.
    virtual bool goesOn() const { return true; }
};

/// How the log lines of one kind of walk begin, and which of them it has written already.
struct LogPrefix {
    const char* text;      ///< "::fs_scan" or "FS_Cache::scan"
    struct DfsState* dfs;  ///< not owned
};

/// What an observer is told of a walk: all, all but the totals at its end, or nothing.
enum class WalkReport { whole, withoutEnd, nothing };

/// Where a walk starts, and its limits. Refers to objects of the caller.
struct WalkRequest {
    const wchar_t* path;  ///< absolute, without symbolic links
    bool recursive;
    const DriveInfo& drive;
    const std::vector<PathInfo>& include;
    const std::vector<PathInfo>& exclude;
    bool caseSensitive;
    long long timeoutMilliseconds;
    /// Mount points of drives of another kind, which the walk does not enter. May be null.
    const MountMap* mounts = nullptr;
    /// What the host's observer is told. It may stop a walk of which it is told something.
    WalkReport report = WalkReport::whole;
    EntryChoice choice = {};
    FsLinks links = FsLinks::leave;
    bool oneFileSystem = false;  ///< for what links lead to; `mounts` stops at mount points
    /// Asked about directories on other file systems that links lead to, by their real paths.
    std::function<bool(const std::wstring&)> entersLinked = {};
    /// What the host's workers, if it has any, do ahead of the walk.
    AheadWork ahead = {};
    unsigned long long expectedDirectories = 0;  ///< told to the observer
};

/// Walks the tree depth first. Entries of a directory come from the last one that
/// the system delivers to the first. `timedOut` when the time ran out, which is checked on
/// entering a directory and now and then within one, or when the observer or the sink
/// said stop.
WalkStatus walkTree(const WalkRequest& request, WalkSink& sink, const LogPrefix& log);

}  // namespace fscanner
