#pragma once

#include <span>
#include <string>

#include "fscanner/engine/stamp_trust.h"
#include "fscanner/store/sums_file.h"
#include "fscanner/store/table.h"

namespace fscanner {

/// The file beside a cache's tables that holds the stamps of its directories, by ID.
/// docs/formats/stamps-file.md has the bytes.
///
/// It is mapped, and changed in place as the tables are: an undo journal may watch it. Nothing
/// rests on it: without it, and where it is damaged or belongs to other tables, each directory
/// counts as changed. An entry may stay when its directory goes, as IDs are not given again.
/// While it is closed it has no stamps, and takes none. One thread at a time.
class DirectoryStamps {
public:
    /// Makes the file anew, without entries.
    [[nodiscard]] bool create(const std::wstring& path, SumsFile& sums);
    /// Opens the file of the tables whose ID counter is this. False, and it is not among `sums`
    /// any more, where it is of no use.
    [[nodiscard]] bool open(const std::wstring& path, SumsFile& sums, unsigned counter);
    bool isOpen() const { return static_cast<bool>(file_); }
    /// True where it is closed. False when the content did not reach the disk.
    [[nodiscard]] bool close();

    /// The stamp of a directory; without one, it counts as changed.
    DirectoryStamp find(unsigned id) const;
    /// Sets, or clears, the stamp of a directory: of one with an entry, or of one with a higher ID
    /// than all that have one. Others get none, and so go on to count as changed. False when the
    /// file could not be changed.
    [[nodiscard]] bool put(unsigned id, const DirectoryStamp& stamp);
    /// Makes entries for these IDs, which rise, and no others; known stamps stay.
    [[nodiscard]] bool fit(std::span<const unsigned> ids);
    /// The same for the directories of the cache. False also when a record cannot be read.
    [[nodiscard]] bool fit(FS_Table& directories);
    /// Does that if most entries, and more than a few, are of directories that are gone.
    [[nodiscard]] bool trim(FS_Table& directories);
    unsigned count() const { return count_; }
    /// Says in the file how many entries there are, and what the ID counter of the tables is. To
    /// be called after all changes: the file is of no use otherwise.
    [[nodiscard]] bool finish(unsigned counter);

    LinuxMmFile& file() { return *file_; }

private:
    bool readHeader(unsigned counter);
    unsigned idAt(unsigned index) const;
    DirectoryStamp stampAt(unsigned index) const;
    unsigned indexOf(unsigned id) const;
    bool write(unsigned index, unsigned id, const DirectoryStamp& stamp);

    SummedFile file_;
    unsigned count_ = 0;
    mutable unsigned next_ = 0;  // where the next entry that is asked for probably lies
};

}  // namespace fscanner
