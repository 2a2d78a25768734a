#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// One file-system type name (owned; may be null), such as "ext4".
class FSCANNER_EXPORT FileSystemInfo {
public:
    FileSystemInfo() = default;
    /// Copies have their own text; one that is moved from has none.
    explicit FileSystemInfo(const wchar_t* name);
    FileSystemInfo(const FileSystemInfo& other);
    FileSystemInfo(FileSystemInfo&& other) noexcept;
    FileSystemInfo& operator=(const FileSystemInfo& other);
    FileSystemInfo& operator=(FileSystemInfo&& other) noexcept;
    ~FileSystemInfo();

    /// The name, owned by the object.
    const wchar_t* getName() const { return name_; }
    bool operator==(const FileSystemInfo& other) const;

private:
    wchar_t* name_ = nullptr;
};

}  // namespace fscanner
