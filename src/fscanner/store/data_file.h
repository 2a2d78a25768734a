#pragma once

#include <memory>
#include <span>

#include "fscanner/common/fields.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

enum RecordCount : unsigned { COUNT_STORED = 0, COUNT_DELETED = 1 };

/// A table's data file: a header with two counts and the schema, then records,
/// appended one after another. docs/formats/data-file.md has the bytes.
///
/// Reads go through the mapping. One thread at a time.
class DataFile {
public:
    /// Creates or empties the file and writes the header. Null on failure. `sums`: null where
    /// none are kept.
    static std::unique_ptr<DataFile> create(const wchar_t* path, const Fields& schema,
                                            SumsFile* sums);
    /// Opens an existing one into `file` and rebuilds `schema` from its header.
    static OpenResult open(const wchar_t* path, Fields& schema, SumsFile* sums,
                           std::unique_ptr<DataFile>& file);

    /// The length of a header for this schema.
    static unsigned headerSize(const Fields& schema);

    unsigned count(RecordCount which) const;
    /// False, and nothing is changed, when a watch of the file refuses.
    bool setCount(RecordCount which, unsigned value);

    /// Where the first record starts, and where the next one will.
    unsigned headerSize() const { return headerSize_; }
    unsigned end() const { return file_->logicalSize(); }

    /// The content from a record's start to the end; empty when no record can
    /// start there. Valid until the next append.
    ByteRange from(unsigned offset) const {
        const std::span<const std::byte> content = file_->content();
        if (offset < headerSize_ || offset >= content.size()) return {};
        return {content.data() + offset, content.data() + content.size()};
    }
    /// Whether these bytes are as they were written; all of them.
    bool holds(unsigned offset, unsigned count) const { return file_.holds(offset, count); }
    bool holdsAll() const { return file_.holdsAll(); }
    bool isCompared() const { return file_.isCompared(); }
    /// All of it, the header included. Valid until the next change.
    const std::byte* content() const { return file_->content().data(); }
    /// Appends at the end. False, and the content ends where it did, when the disk
    /// or the 4 GiB of a file are full.
    bool append(std::span<const std::byte> record);
    /// Overwrites from `offset` on, and lengthens the content where that is needed.
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

}  // namespace fscanner
