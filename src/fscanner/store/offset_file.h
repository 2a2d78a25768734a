#pragma once

#include <memory>

#include "fscanner/store/bytes.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

/// A table's offset file: for each record id the place of the record in the data
/// file, 0 for a removed one. docs/formats/offset-file.md has the bytes.
class OffsetFile {
public:
    static constexpr unsigned REMOVED = 0;
    static constexpr unsigned ENTRY = 4;  ///< length of one

    /// Creates or empties the file. Null on failure. `sums`: null where none are kept.
    static std::unique_ptr<OffsetFile> create(const wchar_t* path, SumsFile* sums);
    static OpenResult open(const wchar_t* path, SumsFile* sums, std::unique_ptr<OffsetFile>& file);

    /// The number of entries: the id of the next record.
    unsigned count() const { return file_->logicalSize() / ENTRY; }
    /// The entry of an id below `count()`; `REMOVED` where it is damaged, which its sums know.
    unsigned at(unsigned id) const {
        if (!file_.holds(ENTRY * id, ENTRY)) return REMOVED;
        return loadInteger<std::uint32_t>(file_->content().data() + std::size_t{ENTRY} * id);
    }
    bool isLive(unsigned id) const { return id < count() && at(id) != REMOVED; }
    /// The first live id from `from` on; `count()` when there is none.
    unsigned nextLive(unsigned from) const;

    /// Whether all entries are as they were written.
    bool holdsAll() const { return file_.holdsAll(); }
    /// All entries, in their order. Valid until the next change.
    const std::byte* entries() const { return file_->content().data(); }

    bool append(unsigned offset);
    /// False, and nothing is changed, when a watch of the file refuses.
    bool markRemoved(unsigned id);

    LinuxMmFile& file() { return *file_; }

    bool sync() { return file_->sync(); }
    bool close() { return file_.close(); }

private:
    explicit OffsetFile(SummedFile file) : file_(std::move(file)) {}

    SummedFile file_;
};

}  // namespace fscanner
