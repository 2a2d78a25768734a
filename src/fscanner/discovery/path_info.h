#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// One path entry of a query: a text, and whether the entry covers the whole subtree or only
/// the directory itself. Owns the text, which may be null. Without memory the constructors,
/// `setPathInfo` and the copy assignment throw `std::bad_alloc`.
class FSCANNER_EXPORT PathInfo {
public:
    PathInfo() = default;
    /// Copies the text; null is allowed. A copied entry has its own text. A moved-from entry
    /// may have none.
    PathInfo(const wchar_t* pathName, bool recursive);
    PathInfo(const PathInfo& other);
    PathInfo(PathInfo&& other) noexcept;
    PathInfo& operator=(const PathInfo& other);
    PathInfo& operator=(PathInfo&& other) noexcept;
    ~PathInfo();

    /// Frees the old text and copies the other entry.
    void setPathInfo(const PathInfo& other);
    /// The text. The entry owns it; null if it has none.
    const wchar_t* getPathName() const { return pathName_; }
    /// Whether the entry covers the whole subtree.
    bool getRecursive() const { return recursive_; }

    /// Whether the texts and the flags are equal. Null differs from empty.
    bool operator==(const PathInfo& other) const;

private:
    wchar_t* pathName_ = nullptr;
    bool recursive_ = false;
};

}  // namespace fscanner
