#include "fscanner/discovery/filesystem_info.h"

#include <utility>

#include "fscanner/common/strings.h"

namespace fscanner {

FileSystemInfo::FileSystemInfo(const wchar_t* name) : name_(copyText(name)) {}

FileSystemInfo::FileSystemInfo(const FileSystemInfo& other) : FileSystemInfo(other.name_) {}

FileSystemInfo::FileSystemInfo(FileSystemInfo&& other) noexcept
    : name_(std::exchange(other.name_, nullptr)) {}

FileSystemInfo& FileSystemInfo::operator=(const FileSystemInfo& other) {
    return *this = FileSystemInfo(other);
}

FileSystemInfo& FileSystemInfo::operator=(FileSystemInfo&& other) noexcept {
    std::swap(name_, other.name_);
    return *this;
}

FileSystemInfo::~FileSystemInfo() {
    freeText(name_);
}

bool FileSystemInfo::operator==(const FileSystemInfo& other) const {
    return sameText(name_, other.name_);
}

}  // namespace fscanner
