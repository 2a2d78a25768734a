#include "fscanner/discovery/mount_entry.h"

#include <new>
#include <utility>

namespace fscanner {

MountEntry::MountEntry(const MountEntry& other) {
    if (!setDevName(other.getDevName()) || !setMountDir(other.getMountDir()) ||
        !setFileSystemType(other.getFileSystemType())) {
        return;
    }
    dummy_ = other.dummy_;
    remote_ = other.remote_;
}

MountEntry& MountEntry::operator=(const MountEntry& other) {
    return *this = MountEntry(other);
}

bool MountEntry::setDevName(const char* device) {
    return set(device_, device);
}

bool MountEntry::setMountDir(const char* directory) {
    return set(directory_, directory);
}

bool MountEntry::setFileSystemType(const char* type) {
    return set(type_, type);
}

bool MountEntry::set(Text& text, const char* value) {
    if (!value) return false;
    try {
        text = std::string(value);
        return true;
    } catch (const std::bad_alloc&) {
        *this = MountEntry();
        return false;
    }
}

}  // namespace fscanner
