#include "fscanner/discovery/drive_info.h"

#include <cwchar>
#include <memory>
#include <utility>

#include "fscanner/common/strings.h"

namespace fscanner {

DriveInfo::DriveInfo(const wchar_t* name, DriveType type, const wchar_t* fileSystem) : type_(type) {
    std::unique_ptr<wchar_t[]> ownedName(copyText(name));
    fileSystem_ = copyText(fileSystem);
    name_ = ownedName.release();
}

DriveInfo::DriveInfo(const DriveInfo& other)
    : DriveInfo(other.name_, other.type_, other.fileSystem_) {}

DriveInfo::DriveInfo(DriveInfo&& other) noexcept
    : name_(std::exchange(other.name_, nullptr)),
      fileSystem_(std::exchange(other.fileSystem_, nullptr)),
      type_(std::exchange(other.type_, DRIVE_UNKNOWN)) {}

DriveInfo& DriveInfo::operator=(const DriveInfo& other) {
    return *this = DriveInfo(other);
}

DriveInfo& DriveInfo::operator=(DriveInfo&& other) noexcept {
    std::swap(name_, other.name_);
    std::swap(fileSystem_, other.fileSystem_);
    std::swap(type_, other.type_);
    return *this;
}

DriveInfo::~DriveInfo() {
    freeText(name_);
    freeText(fileSystem_);
}

bool DriveInfo::operator==(const DriveInfo& other) const {
    return type_ == other.type_ && sameText(name_, other.name_) &&
           sameText(fileSystem_, other.fileSystem_);
}

bool fsIsServed(const DriveInfo& drive) {
    const wchar_t* const kind = drive.getFileSystem();
    return drive.getType() != DRIVE_LOCAL || (kind && std::wcsncmp(kind, L"fuse", 4) == 0);
}

}  // namespace fscanner
