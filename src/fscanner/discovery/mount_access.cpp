#include "fscanner/discovery/mount_access.h"

#include <memory>
#include <string>
#include <vector>

#include "fscanner/discovery/mount_table.h"
#include "fscanner/fs/debug.h"

namespace fscanner {

namespace {

struct CloseDirectory {
    void operator()(DIR* dir) const { closedir(dir); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

bool isDotName(const std::string& name) {
    return name == "." || name == "..";
}

void readThrough(DIR* dir) {
    while (const dirent* entry = readdir(dir)) {
        if (isDotName(entry->d_name)) {
            debug("accessToAllMountPathsRead - continue\n");
            continue;
        }
        debug("accessToAllMountPathsRead - subdirectory file '%s'\n", entry->d_name);
    }
}

}  // namespace

bool accessMountPath(const char* path) {
    const Directory dir(opendir(path));
    if (dir) debug("accessToAllMountPaths - path '%s' accessed\n", path);
    return dir != nullptr;
}

void accessToAllMountPaths() {
    std::vector<MountEntry> entries;
    MountTableManager::getMountEntryList(entries);
    for (const MountEntry& entry : entries) {
        if (entry.isDummy()) accessMountPath(entry.getMountDir());
    }
}

void accessToAllMountPathsRead(DIR* dir, const char* base) {
    while (const dirent* entry = readdir(dir)) {
        if (isDotName(entry->d_name)) continue;
        debug("accessToAllMountPathsRead - subdirectory '%s' read\n", entry->d_name);
        const std::string path = std::string(base) + "/" + entry->d_name;
        const Directory child(opendir(path.c_str()));
        debug("accessToAllMountPathsRead - subdirectory '%s' %s\n", path.c_str(),
              child ? "accessed" : "failed");
        if (child) readThrough(child.get());
    }
}

}  // namespace fscanner
