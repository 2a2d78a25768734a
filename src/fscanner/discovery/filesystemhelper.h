#pragma once

#include "fscanner/common/strings.h"
#include "fscanner/discovery/drive_info.h"

namespace fscanner {

// The distributed file system "dfs". None is known to this system, so that no drive is of
// that kind and no walk gets beyond the first test of `dfsWritesFiles`. A reader of the
// engine can skip this file.

/// What a distributed file system would tell about its file sets. None is
/// configured here, so nothing is known of any path.
class FileSystemHelper {
public:
    /// The file set served at `path`; null when there is none.
    static const char* dfs_mount(const char* path);
    /// This host's name in the distributed file system; null when it has none.
    static const char* dfs_hname();
    /// Fills the file sets that are local to `host`; 0 on success.
    static int load_dfs_local(const char* host, StringList<char>& fileSets);
    /// Whether `fileSet` is served by `host` itself.
    static bool dfs_local(const char* fileSet, const char* host);
};

/// Whether the drive's file system is the distributed one, which is local and remote at once.
bool isDfs(const DriveInfo& drive);

/// What one kind of walk remembers of the distributed file system for the life of
/// its thread.
struct DfsState {
    bool firstTime = true;
    bool loaded = false;
    StringList<char> localFileSets;
};

/// Whether the files of the directory `path` on `drive` are written. False only on
/// a "dfs" drive, so that a file set reached through a local and a remote mount
/// is reported once. `prefix` begins the log lines.
bool dfsWritesFiles(const wchar_t* path, const DriveInfo& drive, const char* prefix,
                    DfsState& state);

}  // namespace fscanner
