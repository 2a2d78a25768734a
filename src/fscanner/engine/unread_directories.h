#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {

/// A file beside the tables of a cache that tells more of their directories, by ID. All of
/// its kind are written whole, before the mark goes, and have this frame:
///
///     magic (8)  version (4)  counter (4)  content ...  CRC-32 of all before (4)
///
/// `counter` is the ID counter of the tables that the content belongs to: IDs mean
/// something else once the tables were changed without the file.
struct SideFile {
    std::wstring path;
    std::string_view magic;  ///< 8 bytes
    unsigned version;

    /// False when not all could be written; the file is then of no use.
    [[nodiscard]] bool write(unsigned counter, std::string_view content) const;
    /// The content. Nothing where the file is missing, damaged, of another version, or
    /// belongs to other tables. Links are not followed.
    std::optional<std::string> read(unsigned counter) const;
};

/// The directories of a cache that could not be read when their tree was built, so that an
/// answer from the cache lacks no more without a word than the scan did.
///
/// They are kept in a file of their own (docs/formats/unread-file.md). Trees that were built
/// while there was no such file, or a damaged one, are told apart by their IDs: `knows`.
/// The file also says whether names can be looked up: `plainNames`.
class UnreadDirectories {
public:
    struct Unread {
        FsSkipReason reason;  ///< `denied` or `tooLong`: what passes by itself is not kept
        int error;            ///< errno, or 0
    };

    /// Forgets all. Of directories up to this ID nothing is known, of later ones all is.
    /// With 0 there are none, and so no names either.
    void reset(unsigned unknownUpTo);
    /// Reads the file of the tables whose ID counter is this. Where it is of no use nothing
    /// is known of any directory that the tables have, and it is false.
    bool load(const std::wstring& path, unsigned counter);
    /// Writes the file.
    [[nodiscard]] bool save(const std::wstring& path, unsigned counter) const;

    void add(unsigned id, FsSkipReason reason, int error) { unread_[id] = {reason, error}; }
    void remove(unsigned id) { unread_.erase(id); }
    /// Whether it is known what of the directory's tree could not be read.
    bool knows(unsigned id) const { return id > unknownUpTo_; }
    bool contains(unsigned id) const { return unread_.contains(id); }
    /// Whether surely no name of a file in the tables holds "*" or "?".
    bool plainNames() const { return plainNames_; }
    void notePattern() { plainNames_ = false; }
    /// By ID, ascending.
    const std::map<unsigned, Unread>& all() const { return unread_; }

private:
    bool decode(const std::string& content, unsigned counter);

    unsigned unknownUpTo_ = 0;
    bool plainNames_ = true;
    std::map<unsigned, Unread> unread_;
};

}  // namespace fscanner
