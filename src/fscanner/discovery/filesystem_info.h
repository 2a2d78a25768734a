#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// The name of a file-system type, such as "ext4". Owns the text, which may be null. Without
/// memory the constructors and the copy assignment throw `std::bad_alloc`.
class FSCANNER_EXPORT FileSystemInfo {
public:
    FileSystemInfo() = default;
    /// Copies the text; null is allowed. A copied object has its own text. A moved-from object
    /// may have none.
    explicit FileSystemInfo(const wchar_t* name);
    FileSystemInfo(const FileSystemInfo& other);
    FileSystemInfo(FileSystemInfo&& other) noexcept;
    FileSystemInfo& operator=(const FileSystemInfo& other);
    FileSystemInfo& operator=(FileSystemInfo&& other) noexcept;
    ~FileSystemInfo();

    /// The name. The object owns it; null if not set.
    const wchar_t* getName() const { return name_; }
    /// Whether the names are equal. Null differs from empty.
    bool operator==(const FileSystemInfo& other) const;

private:
    wchar_t* name_ = nullptr;
};

}  // namespace fscanner
