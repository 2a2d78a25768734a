#pragma once

#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "fscan/process/exit_status.h"
#include "fscanner/fs/fs_fileinfo.h"

struct stat;

namespace fscan {

/// The facts about a file that are shown in long lines.
struct FileFacts {
    bool known = false;  ///< all of them are known: the file was examined and exists
    unsigned attributes = 0;
    unsigned long long size = 0;
    long modified = 0;  ///< seconds since the epoch

    bool none() const { return !known && attributes == 0 && size == 0; }
};

/// How much must be known of matches. Each value includes those before it.
enum class FactsNeeded {
    count,     ///< nothing: they are counted
    none,      ///< the paths
    known,     ///< the facts that the search has, which may come from a cache
    examined,  ///< the facts, from the file system
    detailed   ///< all details, from the file system
};

struct FileDetails;

/// A file that is to be reported.
struct Match {
    std::string_view path;   ///< its bytes, below the PATH as the user gave it; no "/" at its end
    std::size_t nameAt = 0;  ///< where the name begins in it
    FileFacts facts;
    /// What the search knows, or all where the consumer needs more; null where it needs none.
    const FileDetails* details = nullptr;

    std::string_view name() const { return path.substr(nameAt); }
    bool isDirectory() const { return (facts.attributes & fscanner::FS_ATTR_DIRECTORY) != 0; }
    /// Without the "/" at its end, unless that is all.
    std::string_view directory() const { return path.substr(0, nameAt > 1 ? nameAt - 1 : nameAt); }
};

/// Takes matches, one after the other.
class MatchSink {
public:
    virtual ~MatchSink() = default;
    /// The match's texts are valid during the call. Returns false to get no more.
    virtual bool take(const Match& match) = 0;
};

/// The last sink of the matches: counts them up to a limit, and prints them or runs commands.
class MatchConsumer : public MatchSink {
public:
    explicit MatchConsumer(std::optional<unsigned long long> limit)
        : limit_(limit.value_or(std::numeric_limits<unsigned long long>::max())) {}

    bool take(const Match& match) final {
        if (full()) return false;
        if (!admit(match)) return true;
        ++count_;
        return consume(match) && !full();
    }
    /// Told before `finish`: so many directories could not be searched.
    virtual void missed(unsigned long long /*directories*/) {}
    /// To be called after the last match.
    virtual void finish() = 0;
    /// Whether a match, of which the search knows this much, must be examined, where `detailed`
    /// facts are needed.
    virtual bool lacks(const FileDetails&) const { return true; }
    /// Whether `finish` tells of all matches together, which would be wrong of a part of them.
    virtual bool tellsTotals() const { return false; }
    /// `found`, or how it failed to consume the matches.
    virtual ExitStatus status() const { return ExitStatus::found; }
    unsigned long long count() const { return count_; }
    /// Whether the limit is reached.
    bool full() const { return count_ == limit_; }

protected:
    /// Whether a match is to be counted and consumed. One that is not is noted as left out.
    virtual bool admit(const Match&) { return true; }
    /// Returns false to get no more.
    virtual bool consume(const Match& match) = 0;

private:
    unsigned long long limit_;
    unsigned long long count_ = 0;
};

/// The facts about a file, all of one moment.
struct FileDetails {
    bool examined = false;  ///< otherwise only the size and the attributes are known
    unsigned long long size = 0;
    unsigned attributes = 0;  ///< the bits of [ATTR]
    unsigned mode = 0;        ///< permission bits; 0 where they are not known
    long modified = 0;        ///< times are seconds since the epoch
    long accessed = 0;
    long changed = 0;
    unsigned user = 0;
    unsigned group = 0;
    unsigned long long inode = 0;
    unsigned long long device = 0;
    unsigned long long links = 0;
    long modifiedNanoseconds = -1;     ///< beside `modified`; -1 where they are not known
    unsigned format = 0;               ///< the kind, as bits of S_IFMT; 0 where it is not known
    unsigned long long allocated = 0;  ///< bytes on the disk
    std::wstring_view directory{};     ///< where the file is: absolute and without links

    static FileDetails of(const struct stat& info);
    static FileDetails of(const FileFacts& facts);
    /// From a record, without a system call. It counts as examined if the scan examined the
    /// file; the inode, the device, the format and the allocated bytes remain 0.
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
