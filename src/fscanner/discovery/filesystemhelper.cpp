#include "fscanner/discovery/filesystemhelper.h"

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

}  // namespace fscanner
