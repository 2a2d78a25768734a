#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fscanner/platform/descriptor.h"

namespace fscanner {

/// The content of a regular file, or of what a link leads to, which may be one of /proc
/// and have no size. Nothing where it cannot be read or is longer than `limit` bytes.
std::optional<std::string> readWholeFile(const char* path, std::size_t limit = std::string::npos);

/// Marks, counters and the like: files that are written whole. Links are not followed, and
/// only regular files are read or written.

/// Whether anything has a name, a dangling link included. Where the system fails to tell,
/// that is no "absent": what must not be there may be.
enum class Presence { absent, there, unknown };
Presence presenceOf(const std::wstring& path);
/// The bytes that the caller may still write where the directory lies; 0 where the system
/// does not tell.
unsigned long long roomIn(const std::wstring& directory);
/// Creates or replaces the content. A file that has other names, too, is replaced whole:
/// it keeps its content under those.
bool writeSmallFile(const std::wstring& path, const void* content, unsigned size);
/// Reads exactly `size` bytes; false when there are fewer.
bool readSmallFile(const std::wstring& path, void* content, unsigned size);
/// All of it; nothing where it cannot be read or has 2 GiB.
std::optional<std::string> readSmallFile(const std::wstring& path);
/// Files that take the places of others, by their paths: from, to.
using Renames = std::vector<std::pair<std::wstring, std::wstring>>;
/// Waits until the file is on disk, and until the names in the directory are.
bool syncFile(const std::wstring& path);
bool syncDirectory(const std::wstring& path);

/// A file that becomes again what it was: pieces are put back, then it is cut.
class RestoredFile {
public:
    /// False where there is no regular file of this name, or one shorter than it was.
    bool open(const std::wstring& path, long long length);
    bool put(long long offset, const void* bytes, std::size_t count);
    /// Cuts the file to its old length, and waits until all is on disk.
    bool cut();

private:
    Descriptor file_;
    long long length_ = 0;
    bool changed_ = false;
};

}  // namespace fscanner
