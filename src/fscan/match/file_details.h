#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "fscan/match/match.h"

struct stat;

namespace fscanner {
class FsFileInfo;
}

namespace fscan {

/// The facts about a file, all of one moment.
struct FileDetails {
    bool examined = false;  ///< otherwise only the size and the attributes are known
    unsigned long long size = 0;
    unsigned attributes = 0;  ///< the bits of [ATTR]
    long modified = 0;        ///< times are seconds since the epoch
    long accessed = 0;
    long changed = 0;
    unsigned user = 0;
    unsigned group = 0;
    unsigned long long inode = 0;
    unsigned long long device = 0;
    unsigned long long links = 0;
    std::wstring_view directory{};  ///< where the file is: absolute and without links

    static FileDetails of(const struct stat& info);
    static FileDetails of(const FileFacts& facts);
    /// From a record, without a system call. It counts as examined if the scan examined the
    /// file; the inode, the device and the number of links remain 0.
    static FileDetails of(const fscanner::FsFileInfo& record);
    FileFacts facts() const { return {examined, attributes, size, modified}; }
};

/// The description that the file program gives; empty where it gives none.
std::string typeText(const Match& match, const FileDetails& details);

/// The bits of [ATTR], in JSON an object.
struct AttributeBits {
    unsigned bits;
};

/// The value of a field: none where it is not known.
using FieldValue =
    std::variant<std::monostate, bool, unsigned long long, std::string, AttributeBits>;

/// A field of a match, as programs read it: in CSV, templates and JSON.
struct DetailField {
    /// The forms that have it.
    enum Forms : unsigned { text = 1, json = 2, both = text | json };

    const char* name;  ///< the header, the name in a template, and the key
    Forms forms;
    bool foreign;  ///< a text that others chose
    FieldValue (*value)(const Match& match, const FileDetails& details);
};

/// All fields, in the order of columns and keys; "type", which costs a look into the file, is
/// the last one. "kind" is in the list twice, as it has different places in the two forms.
std::span<const DetailField> detailFields();

/// The value as CSV and templates have it; empty where it is not known.
std::string textOf(const FieldValue& value);

}  // namespace fscan
