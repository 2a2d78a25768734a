#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {

/// A file beside the tables of a cache with more facts about the directories, by ID. Such a file is
/// written as a whole, before the mark is removed, and has this layout (sizes in bytes):
///
///     magic (8)  version (4)  counter (4)  content ...  CRC-32 of all before (4)
///
/// `counter` is the ID counter of the tables for which the file was written. If the tables were
/// changed later without the file, the counters differ, and the file is not used.
struct SideFile {
    std::wstring path;
    std::string_view magic;  ///< 8 bytes
    unsigned version;

    /// False if the file was not written completely. It cannot be read then.
    [[nodiscard]] bool write(unsigned counter, std::string_view content) const;
    /// The content. Nothing if the file is missing or damaged, has another version, or was
    /// written for another counter. Links are not followed.
    std::optional<std::string> read(unsigned counter) const;
};

/// The directories of a cache that could not be read when their tree was built. A query reports
/// them with each answer from the cache, as the scan did that built the tree.
///
/// They are stored in a file of their own (docs/formats/unread-file.md). If that file is missing
/// or damaged, nothing is known about the directories that the tables have by then; `knows` tells
/// them from later ones by their IDs. The file also says whether a name in the tables may be a
/// pattern: `plainNames`.
class UnreadDirectories {
public:
    struct Unread {
        FsSkipReason reason;  ///< `denied` or `tooLong`; other reasons may pass by themselves
        int error;            ///< errno, or 0
    };

    /// Drops all entries. From now on nothing is known about directories with IDs up to
    /// `unknownUpTo`, and everything about later ones. 0 means that the tables are empty, and
    /// so contain no names either.
    void reset(unsigned unknownUpTo);
    /// Reads the file for tables with this ID counter. If the file cannot be used, returns false,
    /// and nothing is known about any directory of the tables.
    bool load(const std::wstring& path, unsigned counter);
    /// Writes the file. False if that fails.
    [[nodiscard]] bool save(const std::wstring& path, unsigned counter) const;

    void add(unsigned id, FsSkipReason reason, int error) { unread_[id] = {reason, error}; }
    void remove(unsigned id) { unread_.erase(id); }
    /// Whether it is known which directories below this one could not be read.
    bool knows(unsigned id) const { return id > unknownUpTo_; }
    bool contains(unsigned id) const { return unread_.contains(id); }
    /// Whether certainly no file name in the tables contains "*" or "?". Only then is a name
    /// looked up in an index: such a name is a pattern and equals texts that have other keys.
    bool plainNames() const { return plainNames_; }
    /// Notes that a file name may contain "*" or "?".
    void notePattern() { plainNames_ = false; }
    /// All entries, by ascending ID.
    const std::map<unsigned, Unread>& all() const { return unread_; }

private:
    bool decode(const std::string& content, unsigned counter);

    unsigned unknownUpTo_ = 0;
    bool plainNames_ = true;
    std::map<unsigned, Unread> unread_;
};

}  // namespace fscanner
