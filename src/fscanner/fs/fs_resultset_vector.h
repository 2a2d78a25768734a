#pragma once

#include <memory>
#include <vector>

#include "fscanner/export.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_resultset.h"

namespace fscanner {

/// Appends records to a store that somebody else owns.
class FSCANNER_EXPORT FsResultSetWriter_OnVector : public FsResultSetWriter {
public:
    /// The store has to outlive the writer.
    explicit FsResultSetWriter_OnVector(std::vector<FsFileInfo>* records) : records_(records) {}
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override;
    int addRecord(const FsFileInfo& record) override;
    int close() override { return 0; }

private:
    std::vector<FsFileInfo>* records_;
};

/// Hands records out in the order in which they were added, and owns them.
/// Deliberately has no sorting and no bookmark.
class FSCANNER_EXPORT FsResultSetReader_OnVector : public FsResultSetReader {
public:
    /// Null stands for no records.
    explicit FsResultSetReader_OnVector(std::unique_ptr<std::vector<FsFileInfo>> records);
    ~FsResultSetReader_OnVector() override;
    void moveFirst() override { cursor_ = 0; }
    /// `out` is untouched when there is no next record.
    bool getNext(FsFileInfo& out) override;
    int sort(unsigned, unsigned, bool) override { return 0; }
    int setBookmark() override { return 0; }
    int toBookmark() override { return 0; }

private:
    std::unique_ptr<std::vector<FsFileInfo>> records_;
    unsigned cursor_ = 0;
};

/// The in-memory result set. Records may still be added after `getReader`; the
/// reader then sees them, as long as it lives.
class FSCANNER_EXPORT FsResultSet_OnVector : public FsResultSet {
public:
    FsResultSet_OnVector();
    ~FsResultSet_OnVector() override;
    FsResultSetReader* getReader() override;
    FsResultSetWriter* getWriter() override;

private:
    std::unique_ptr<std::vector<FsFileInfo>> unclaimed_;  // until the reader takes it
    std::vector<FsFileInfo>* records_;
    FsResultSetReader* reader_ = nullptr;  // the caller's
    std::unique_ptr<FsResultSetWriter> writer_;
};

}  // namespace fscanner
