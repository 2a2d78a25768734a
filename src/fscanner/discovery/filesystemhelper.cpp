#include "fscanner/discovery/filesystemhelper.h"

#include "fscanner/common/debug.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/utf8.h"

namespace fscanner {

const char* FileSystemHelper::dfs_mount(const char* /*path*/) {
    return nullptr;
}

const char* FileSystemHelper::dfs_hname() {
    return nullptr;
}

int FileSystemHelper::load_dfs_local(const char* /*host*/, StringList<char>& /*fileSets*/) {
    return 0;
}

bool FileSystemHelper::dfs_local(const char* /*fileSet*/, const char* /*host*/) {
    return false;
}

namespace {

void loadLocalFileSets(DfsState& state) {
    if (!state.firstTime) return;
    state.firstTime = false;
    const char* host = FileSystemHelper::dfs_hname();
    state.loaded = FileSystemHelper::load_dfs_local(host, state.localFileSets) == 0;
    // Every kind of walk writes these two lines under one prefix.
    debug("FS_Cache::scan - load_dfs_local_retValue value is %s: dfs local list %s!\n",
          state.loaded ? "true" : "false", state.loaded ? "loaded" : "not loaded");
}

bool isLocalFileSet(const char* fileSet, const char* prefix, DfsState& state) {
    loadLocalFileSets(state);
    if (state.loaded) {
        const bool listed = state.localFileSets.find(fileSet) >= 0;
        debug("%s - '%s' %s in dfs local list\n", prefix, fileSet, listed ? "found" : "not found");
        if (!listed) return false;
    }
    return FileSystemHelper::dfs_local(fileSet, FileSystemHelper::dfs_hname());
}

const char* word(bool value) {
    return value ? "true" : "false";
}

}  // namespace

bool isDfs(const DriveInfo& drive) {
    return sameText(drive.getFileSystem(), L"dfs");
}

bool dfsWritesFiles(const wchar_t* path, const DriveInfo& drive, const char* prefix,
                    DfsState& state) {
    if (!isDfs(drive)) return true;
    debug("%s - get a path on 'dfs' filesystem\n", prefix);
    const std::string bytes = toMultibyte(path);
    const char* fileSet = FileSystemHelper::dfs_mount(bytes.c_str());
    if (fileSet) debug("%s - fset value for '%s' path is %s\n", prefix, bytes.c_str(), fileSet);
    const bool isLocal = !fileSet || isLocalFileSet(fileSet, prefix, state);
    debug("%s - isLocal value for '%s' path is %s\n", prefix, bytes.c_str(), word(isLocal));
    const bool writes = (drive.getType() == DRIVE_REMOTE) != isLocal;
    debug("%s - bAddRecord value for '%s' path is %s\n", prefix, bytes.c_str(), word(writes));
    return writes;
}

}  // namespace fscanner
