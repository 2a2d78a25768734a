#pragma once

#include <memory>

#include "fscanner/platform/linuxfile.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/data_file.h"

namespace fscanner {

/// A table's offset file: for each record id the place of the record in the data
/// file, 0 for a removed one. docs/formats/offset-file.md has the bytes.
class OffsetFile {
public:
    static constexpr unsigned REMOVED = 0;

    /// Creates or empties the file. Null on failure.
    static std::unique_ptr<OffsetFile> create(const wchar_t* path);
    static OpenResult open(const wchar_t* path, std::unique_ptr<OffsetFile>& file);

    /// The number of entries: the id of the next record.
    unsigned count() const { return file_->logicalSize() / ENTRY; }
    /// The entry of an id below `count()`.
    unsigned at(unsigned id) const {
        return loadInteger<std::uint32_t>(file_->content().data() + std::size_t{ENTRY} * id);
    }
    bool isLive(unsigned id) const { return id < count() && at(id) != REMOVED; }
    /// The first live id from `from` on; `count()` when there is none.
    unsigned nextLive(unsigned from) const;

    /// All entries, in their order. Valid until the next change.
    const std::byte* entries() const { return file_->content().data(); }

    bool append(unsigned offset);
    /// False, and nothing is changed, when a watch of the file refuses.
    bool markRemoved(unsigned id);

    void addWatch(BlockWatch& watch) { file_->addWatch(watch); }

    bool sync() { return file_->sync(); }
    bool close() { return file_->close(); }

private:
    static constexpr unsigned ENTRY = 4;

    explicit OffsetFile(std::unique_ptr<LinuxMmFile> file) : file_(std::move(file)) {}

    std::unique_ptr<LinuxMmFile> file_;
};

}  // namespace fscanner
