#pragma once

#include "fscanner/common/string_list.h"
#include "fscanner/discovery/drive_info.h"

namespace fscanner {

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
