#include "fscanner/fs/fs_resultset_vector.h"

#include <new>
#include <utility>

namespace fscanner {

// The destructors are defined here so that the virtual tables of the interfaces are emitted in
// this file only.
FsResultSetWriter::~FsResultSetWriter() = default;
FsResultSetReader::~FsResultSetReader() = default;
FsResultSet::~FsResultSet() = default;

int FsResultSetWriter_OnVector::addRecord(const wchar_t* path, const wchar_t* name,
                                          unsigned long long size, unsigned attributes) {
    if (records_ == nullptr) return -1;
    FsFileInfo record;
    record.setFilePath(path);
    record.setFileName(name);
    record.setFileSize(size);
    record.setFileAttr(attributes);
    if (record.hasError()) return -1;
    try {
        records_->push_back(std::move(record));
    } catch (const std::bad_alloc&) {
        return -1;
    }
    return 0;
}

int FsResultSetWriter_OnVector::addRecord(const FsFileInfo& record) {
    if (records_ == nullptr) return -1;
    FsFileInfo copy(record);
    const bool lost = (copy.getPath() == nullptr && record.getPath() != nullptr) ||
                      (copy.getName() == nullptr && record.getName() != nullptr);
    if (lost) return -1;
    try {
        records_->push_back(std::move(copy));
    } catch (const std::bad_alloc&) {
        return -1;
    }
    return 0;
}

FsResultSetReader_OnVector::FsResultSetReader_OnVector(
    std::unique_ptr<std::vector<FsFileInfo>> records)
    : records_(std::move(records)) {}

FsResultSetReader_OnVector::~FsResultSetReader_OnVector() = default;

bool FsResultSetReader_OnVector::getNext(FsFileInfo& out) {
    if (!records_ || cursor_ >= records_->size()) return false;
    out = (*records_)[cursor_++];
    return true;
}

FsResultSet_OnVector::FsResultSet_OnVector()
    : unclaimed_(new (std::nothrow) std::vector<FsFileInfo>), records_(unclaimed_.get()) {}

FsResultSet_OnVector::~FsResultSet_OnVector() = default;

FsResultSetWriter* FsResultSet_OnVector::getWriter() {
    if (!writer_) writer_.reset(new (std::nothrow) FsResultSetWriter_OnVector(records_));
    return writer_.get();
}

FsResultSetReader* FsResultSet_OnVector::getReader() {
    if (reader_ != nullptr) return reader_;
    if (writer_) writer_->close();
    reader_ = new (std::nothrow) FsResultSetReader_OnVector(std::move(unclaimed_));
    return reader_;
}

}  // namespace fscanner
