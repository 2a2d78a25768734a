#pragma once

#include <memory>

#include "fscanner/store/bytes.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

/// A table's offset file: for each record id the offset of the record in the data file,
/// 0 for a removed record. docs/formats/offset-file.md describes the bytes.
class OffsetFile {
public:
    static constexpr unsigned REMOVED = 0;
    static constexpr unsigned ENTRY = 4;  ///< length of an entry in bytes

    /// Creates or empties the file. Null on failure. `sums`: null if no checksums are kept.
    static std::unique_ptr<OffsetFile> create(const wchar_t* path, SumsFile* sums);
    static OpenResult open(const wchar_t* path, SumsFile* sums, std::unique_ptr<OffsetFile>& file);

    /// The number of entries, which is the id of the next record.
    unsigned count() const { return file_->logicalSize() / ENTRY; }
    /// The entry of an id below `count()`. A damaged entry reads as `REMOVED`; the checksums have
    /// noted the damage then.
    unsigned at(unsigned id) const {
        if (!file_.holds(ENTRY * id, ENTRY)) return REMOVED;
        return loadInteger<std::uint32_t>(file_->content().data() + std::size_t{ENTRY} * id);
    }
    bool isLive(unsigned id) const { return id < count() && at(id) != REMOVED; }
    /// The lowest live id that is at least `from`; `count()` when there is none.
    unsigned nextLive(unsigned from) const;

    /// Whether all entries match their checksums.
    bool holdsAll() const { return file_.holdsAll(); }
    /// All entries, by id. Valid until the next change.
    const std::byte* entries() const { return file_->content().data(); }

    bool append(unsigned offset);
    /// False, and nothing is changed, when a watch of the file forbids the change.
    bool markRemoved(unsigned id);

    LinuxMmFile& file() { return *file_; }

    bool sync() { return file_->sync(); }
    bool close() { return file_.close(); }

private:
    explicit OffsetFile(SummedFile file) : file_(std::move(file)) {}

    SummedFile file_;
};

}  // namespace fscanner
