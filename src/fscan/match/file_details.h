#pragma once

#include <span>
#include <string>
#include <string_view>

#include "fscan/match/match.h"

struct stat;

namespace fscanner {
class FsFileInfo;
}

namespace fscan {

/// All that is told of a file, as it was at one moment.
struct FileDetails {
    bool examined = false;  ///< else only the size and the attributes, as the search knows them
    unsigned long long size = 0;
    unsigned attributes = 0;  ///< as [ATTR] has them
    long modified = 0;        ///< times are seconds since the epoch
    long accessed = 0;
    long changed = 0;
    unsigned user = 0;
    unsigned group = 0;
    unsigned long long inode = 0;
    unsigned long long device = 0;
    unsigned long long links = 0;
    std::wstring_view directory{};  ///< where it lies: absolute and without links

    static FileDetails of(const struct stat& info);
    static FileDetails of(const FileFacts& facts);
    /// Of a record: examined when the scan did that; the inode, the device and the number
    /// of links are not told. Asks the system for nothing.
    static FileDetails of(const fscanner::FsFileInfo& record);
    FileFacts facts() const { return {examined, attributes, size, modified}; }
};

/// What the file program says; empty where it says nothing.
std::string typeText(const Match& match, const FileDetails& details);

/// A named field of a match, as a text.
struct DetailField {
    const char* name;
    std::string (*text)(const Match& match, const FileDetails& details);
    bool foreign;  ///< chosen by whoever made the file
};

/// All fields, "type" last.
std::span<const DetailField> detailFields();

}  // namespace fscan
