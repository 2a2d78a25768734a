#include "fscanner/discovery/path_info.h"

#include <utility>

#include "fscanner/common/strings.h"

namespace fscanner {

PathInfo::PathInfo(const wchar_t* pathName, bool recursive)
    : pathName_(copyText(pathName)), recursive_(recursive) {}

PathInfo::PathInfo(const PathInfo& other) : PathInfo(other.pathName_, other.recursive_) {}

PathInfo::PathInfo(PathInfo&& other) noexcept
    : pathName_(std::exchange(other.pathName_, nullptr)),
      recursive_(std::exchange(other.recursive_, false)) {}

PathInfo& PathInfo::operator=(const PathInfo& other) {
    if (this != &other) setPathInfo(other);
    return *this;
}

PathInfo& PathInfo::operator=(PathInfo&& other) noexcept {
    std::swap(pathName_, other.pathName_);
    std::swap(recursive_, other.recursive_);
    return *this;
}

PathInfo::~PathInfo() {
    freeText(pathName_);
}

void PathInfo::setPathInfo(const PathInfo& other) {
    *this = PathInfo(other);
}

bool PathInfo::operator==(const PathInfo& other) const {
    return recursive_ == other.recursive_ && sameText(pathName_, other.pathName_);
}

}  // namespace fscanner
