#pragma once

#include <string>
#include <utility>

namespace fscanner {

/// A directory entry's name, which it owns, and its type code.
class FileInfo {
public:
    FileInfo(std::wstring entry, unsigned type) : entry_(std::move(entry)), type_(type) {}

    /// Valid as long as the object.
    const wchar_t* getEntry() const { return entry_.c_str(); }
    unsigned getType() const { return type_; }

private:
    std::wstring entry_;
    unsigned type_;
};

}  // namespace fscanner
