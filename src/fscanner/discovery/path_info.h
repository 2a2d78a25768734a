#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// One path entry of a query: a text (owned; may be null) and whether it covers
/// the whole subtree or the directory itself only.
class FSCANNER_EXPORT PathInfo {
public:
    PathInfo() = default;
    /// Copies have their own text; one that is moved from has none.
    PathInfo(const wchar_t* pathName, bool recursive);
    PathInfo(const PathInfo& other);
    PathInfo(PathInfo&& other) noexcept;
    PathInfo& operator=(const PathInfo& other);
    PathInfo& operator=(PathInfo&& other) noexcept;
    ~PathInfo();

    /// Frees the old text and takes a copy of the other entry.
    void setPathInfo(const PathInfo& other);
    /// The text, owned by the entry; null when it has none.
    const wchar_t* getPathName() const { return pathName_; }
    bool getRecursive() const { return recursive_; }

    /// Both texts null or both equal exactly, and the same flag.
    bool operator==(const PathInfo& other) const;

private:
    wchar_t* pathName_ = nullptr;
    bool recursive_ = false;
};

}  // namespace fscanner
