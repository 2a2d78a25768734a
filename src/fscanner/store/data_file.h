#pragma once

#include <memory>
#include <span>

#include "fscanner/common/fields.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

enum RecordCount : unsigned { COUNT_STORED = 0, COUNT_DELETED = 1 };

/// A table's data file: a header with two counts and the schema, followed by records in
/// the order of their insertion. docs/formats/data-file.md describes the bytes.
///
/// Reads return views into the mapped file. One thread at a time.
class DataFile {
public:
    /// Creates or empties the file and writes the header. Null on failure. `sums`: null if no
    /// checksums are kept.
    static std::unique_ptr<DataFile> create(const wchar_t* path, const Fields& schema,
                                            SumsFile* sums);
    /// Opens an existing file as `file` and reads `schema` from its header.
    static OpenResult open(const wchar_t* path, Fields& schema, SumsFile* sums,
                           std::unique_ptr<DataFile>& file);

    /// The length of a header for this schema, in bytes.
    static unsigned headerSize(const Fields& schema);

    unsigned count(RecordCount which) const;
    /// False, and nothing is changed, when a watch of the file forbids the change.
    bool setCount(RecordCount which, unsigned value);

    /// The offsets of the first record and of the next one to be appended.
    unsigned headerSize() const { return headerSize_; }
    unsigned end() const { return file_->logicalSize(); }

    /// The content from `offset` to the end of the file; empty when no record can start at
    /// `offset`. Valid until the next append.
    ByteRange from(unsigned offset) const {
        const std::span<const std::byte> content = file_->content();
        if (offset < headerSize_ || offset >= content.size()) return {};
        return {content.data() + offset, content.data() + content.size()};
    }
    /// Whether these bytes match their checksums.
    bool holds(unsigned offset, unsigned count) const { return file_.holds(offset, count); }
    /// Whether the whole file does.
    bool holdsAll() const { return file_.holdsAll(); }
    /// Whether no block is left to compare.
    bool isCompared() const { return file_.isCompared(); }
    /// The whole content, with the header. Valid until the next change.
    const std::byte* content() const { return file_->content().data(); }
    /// Appends at the end. False, and the content is unchanged, when the disk is full or
    /// the file would exceed 4 GiB.
    bool append(std::span<const std::byte> record);
    /// Overwrites the content from `offset` on, and extends it if necessary.
    bool write(unsigned offset, std::span<const std::byte> bytes);

    LinuxMmFile& file() { return *file_; }
    bool sync() { return file_->sync(); }
    bool close() { return file_.close(); }

private:
    DataFile(SummedFile file, unsigned headerLength)
        : file_(std::move(file)), headerSize_(headerLength) {}

    SummedFile file_;
    unsigned headerSize_;
};

/// A table's offset file: for each record id the offset of the record in the data file,
/// 0 for a removed record. docs/formats/offset-file.md describes the bytes.
class OffsetFile {
public:
    static constexpr unsigned kRemoved = 0;
    static constexpr unsigned kEntry = 4;  ///< length of an entry in bytes

    /// Creates or empties the file. Null on failure. `sums`: null if no checksums are kept.
    static std::unique_ptr<OffsetFile> create(const wchar_t* path, SumsFile* sums);
    static OpenResult open(const wchar_t* path, SumsFile* sums, std::unique_ptr<OffsetFile>& file);

    /// The number of entries, which is the id of the next record.
    unsigned count() const { return file_->logicalSize() / kEntry; }
    /// The entry of an id below `count()`. A damaged entry reads as `kRemoved`; the checksums have
    /// noted the damage then.
    unsigned at(unsigned id) const {
        if (!file_.holds(kEntry * id, kEntry)) return kRemoved;
        return loadInteger<std::uint32_t>(file_->content().data() + std::size_t{kEntry} * id);
    }
    bool isLive(unsigned id) const { return id < count() && at(id) != kRemoved; }
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
