#pragma once

#include <cstdint>

#include "fscanner/platform/directory.h"

namespace fscanner {

/// What the system said of a directory before its entries were read. Times are nanoseconds since
/// the epoch, modulo 2^64.
struct DirectoryStamp {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t changed = 0;   ///< st_ctim
    std::uint64_t modified = 0;  ///< st_mtim
    std::uint64_t read = 0;      ///< `getFileClock` before the system was asked; 0: no stamp

    DirectoryStamp() = default;
    DirectoryStamp(const struct stat& info, std::uint64_t readAt);

    bool exists() const { return read != 0; }
    bool operator==(const DirectoryStamp&) const = default;
};

/// Whether a change after the reading may have left the directory with the time that the stamp
/// has, on a file system whose times go in steps of `step` nanoseconds.
///
/// That is so when the time is not older than the reading by more than a step. A time of whole
/// seconds is never believed: the file system may keep no others (ext3 with inodes of 128
/// bytes), or a program that makes images of file systems chose the time, and may choose it
/// again for another content.
bool isRacy(const DirectoryStamp& stamp, std::uint64_t step);

/// Whether a directory that looks like `now` has the entries that it had when `kept` was taken.
/// Times are equal or not; which is later does not matter, as clocks are set.
bool isUnchanged(const DirectoryStamp& kept, const DirectoryStamp& now, std::uint64_t step);

/// The same for a time of whole seconds, if it is older than the reading by more than one: then no
/// program has changed the directory, but another image of the file system may have taken the place
/// of this one.
bool isUntouched(const DirectoryStamp& kept, const DirectoryStamp& now, std::uint64_t step);

/// A type of file system on which the ctime of a directory changes with its entries, always.
struct StampTrust {
    std::uint32_t type;  ///< `Directory::fileSystemType`
    std::uint64_t step;  ///< nanoseconds between two times that surely differ
};

/// Null for a type whose stamps say nothing: there the age of a tree decides.
const StampTrust* findStampTrust(std::uint32_t type);

/// Takes the stamps of one directory after the other, mostly of the same file system. One
/// thread at a time.
class StampTaker {
public:
    /// To be called before the directory is read. No stamp where its file system is not trusted
    /// or the system fails to tell.
    DirectoryStamp take(const Directory& directory);
    /// Of the directory that was asked about last; null where it is not trusted.
    const StampTrust* trust() const { return trust_; }

private:
    const StampTrust* trust_ = nullptr;
    std::uint64_t device_ = 0;  // that of `trust_`
    bool asked_ = false;
};

}  // namespace fscanner
