#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fscanner/platform/descriptor.h"

namespace fscanner {

/// The content of a regular file; symbolic links are followed. A file of /proc, whose
/// size is reported as 0, is read too. Empty when the file cannot be read or is longer than
/// `limit` bytes.
std::optional<std::string> readWholeFile(const char* path, std::size_t limit = std::string::npos);

/// The functions below are for small files that are written as a whole, such as marks and
/// counters. They do not follow symbolic links, and read or write only regular files.

/// Whether a path names anything; a dangling link counts. `unknown`: the system reported an
/// error other than "no such file". Do not take that for `absent`.
enum class Presence { absent, there, unknown };
Presence presenceOf(const std::wstring& path);
/// Whether a path names a regular file; a link to one is none.
bool isRegularFile(const std::wstring& path);
/// The bytes that this user may still write to the file system of the directory; 0 when the
/// system does not tell.
unsigned long long roomIn(const std::wstring& directory);
/// Creates the file or replaces its content. A file that also has other names (hard links) is
/// replaced by a new one; under its other names it keeps its content.
bool writeSmallFile(const std::wstring& path, const void* content, unsigned size);
/// Reads exactly `size` bytes from the start; false when there are fewer.
bool readSmallFile(const std::wstring& path, void* content, unsigned size);
/// The whole content; empty when it cannot be read or has 2 GiB or more.
std::optional<std::string> readSmallFile(const std::wstring& path);
/// Files that are to be renamed: pairs of old and new path.
using Renames = std::vector<std::pair<std::wstring, std::wstring>>;
/// Waits until the file's content is on disk.
bool syncFile(const std::wstring& path);
/// Waits until the directory's entries are on disk: created, renamed and removed names.
bool syncDirectory(const std::wstring& path);

/// Restores an earlier state of a file: blocks are put back, then it is cut to its old length.
class RestoredFile {
public:
    /// `length`: the old length in bytes. False when there is no regular file of this name, or
    /// it is shorter than that.
    bool open(const std::wstring& path, long long length);
    bool put(long long offset, const void* bytes, std::size_t count);
    /// Cuts the file to its old length and waits until everything is on disk.
    bool cut();

private:
    Descriptor file_;
    long long length_ = 0;
    bool changed_ = false;
};

}  // namespace fscanner
