#pragma once

#include <memory>
#include <vector>

#include "fscanner/export.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_resultset.h"

namespace fscanner {

/// Appends records to a vector that it does not own.
class FSCANNER_EXPORT FsResultSetWriter_OnVector : public FsResultSetWriter {
public:
    /// The vector must outlive the writer. With null, `addRecord` fails.
    explicit FsResultSetWriter_OnVector(std::vector<FsFileInfo>* records) : records_(records) {}
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override;
    int addRecord(const FsFileInfo& record) override;
    int close() override { return 0; }

private:
    std::vector<FsFileInfo>* records_;
};

/// Owns records and returns them in the order in which they were added. Sorting and bookmarks
/// are deliberately left out.
class FSCANNER_EXPORT FsResultSetReader_OnVector : public FsResultSetReader {
public:
    /// Null means no records.
    explicit FsResultSetReader_OnVector(std::unique_ptr<std::vector<FsFileInfo>> records);
    ~FsResultSetReader_OnVector() override;
    void moveFirst() override { cursor_ = 0; }
    /// `out` stays as it is if there is no next record.
    bool getNext(FsFileInfo& out) override;
    int sort(unsigned, unsigned, bool) override { return 0; }
    int setBookmark() override { return 0; }
    int toBookmark() override { return 0; }

private:
    std::unique_ptr<std::vector<FsFileInfo>> records_;
    unsigned cursor_ = 0;
};

/// The result set in memory. Records may still be added after `getReader`, and the reader
/// returns them. Nothing may be added after the reader was deleted, because it owns the records.
class FSCANNER_EXPORT FsResultSet_OnVector : public FsResultSet {
public:
    FsResultSet_OnVector();
    ~FsResultSet_OnVector() override;
    FsResultSetReader* getReader() override;
    FsResultSetWriter* getWriter() override;

private:
    std::unique_ptr<std::vector<FsFileInfo>> unclaimed_;  // null once the reader owns it
    std::vector<FsFileInfo>* records_;                    // the same vector, whoever owns it
    FsResultSetReader* reader_ = nullptr;                 // the caller's
    std::unique_ptr<FsResultSetWriter> writer_;
};

}  // namespace fscanner
