#pragma once

#include <span>
#include <string>

#include "match.h"

namespace fscan {

/// What the structured forms tell of a file. Read anew, as an answer from a cache holds
/// little of it; of a file that is gone only what the search knows.
struct FileDetails {
    bool exists = false;
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

    static FileDetails of(const Match& match);
};

/// "file", "link", "device" or "other".
const char* kindText(unsigned attributes);
/// "-rw-r--r--".
std::string attributeText(unsigned attributes);
/// What the file program says; empty where it says nothing.
std::string typeText(const Match& match);

/// A named field of a match, as a text.
struct DetailField {
    const char* name;
    std::string (*text)(const Match& match, const FileDetails& details);
    bool foreign;  ///< chosen by whoever made the file
};

/// All fields, "type" last.
std::span<const DetailField> detailFields();

}  // namespace fscan
