#pragma once

#include <memory>
#include <string>

#include "fscanner/export.h"
#include "fscanner/fs/fs_resultset.h"

namespace fscanner {

class FsSerializator;
class LinuxMmFile;

/// Appends records to a record file (docs/formats/result-records.md).
class FSCANNER_EXPORT FsResultSetWriter_OnFile : public FsResultSetWriter {
public:
    /// Creates the file, or empties it. Where that fails, every record fails.
    explicit FsResultSetWriter_OnFile(const char* name);
    ~FsResultSetWriter_OnFile() override;

    /// -1 after `close`, and for good after a failed write.
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override;
    int addRecord(const FsFileInfo& record) override;
    /// Cuts the file to the bytes written; removes it where that fails.
    int close() override;

private:
    std::string name_;
    std::unique_ptr<LinuxMmFile> file_;
    std::unique_ptr<FsSerializator> serializator_;  // closes the file
};

/// Reads a record file and removes it in the end.
class FSCANNER_EXPORT FsResultSetReader_OnFile : public FsResultSetReader {
public:
    /// Opens nothing. A null name is a programming error and stops the program.
    explicit FsResultSetReader_OnFile(const char* filename);
    ~FsResultSetReader_OnFile() override;

    /// Opens the file at its start; the bookmark stays where it is.
    void moveFirst() override;
    /// Clears `out` and loads the next record. Once one could not be loaded, all
    /// fail until `moveFirst` or `toBookmark`.
    bool getNext(FsFileInfo& out) override;
    /// Sorts the file itself and closes it: call `moveFirst` afterwards. Needs disk
    /// for a second copy beside it. 0, and the file stays open, for an unknown key;
    /// otherwise 1, even if the sort failed, which the debug log tells.
    int sort(unsigned key, unsigned direction, bool caseSensitive) override;
    int setBookmark() override;
    int toBookmark() override;

private:
    FSCANNER_HIDDEN void closeFile();

    std::string name_;
    unsigned bookmark_ = 0;
    std::unique_ptr<LinuxMmFile> file_;
    std::unique_ptr<FsSerializator> serializator_;  // closes the file
};

/// The result set in a temporary file, for more records than memory should hold.
///
/// The file is created when the writer is, readable by its owner alone, and
/// removed with the reader, or with the set if there was none, or by the cleanup
/// handlers of `FsResourceManager`. The process ends with exit status 41 when no
/// temporary name can be found.
class FSCANNER_EXPORT FsResultSet_OnFile : public FsResultSet {
public:
    FsResultSet_OnFile();
    ~FsResultSet_OnFile() override;
    FsResultSet_OnFile(const FsResultSet_OnFile&) = delete;
    FsResultSet_OnFile& operator=(const FsResultSet_OnFile&) = delete;

    /// The reader has no file open yet: call `moveFirst`.
    FsResultSetReader* getReader() override;
    FsResultSetWriter* getWriter() override;

private:
    FSCANNER_HIDDEN void chooseName();
    FSCANNER_HIDDEN bool claimFile();

    std::string name_;
    bool claimed_ = false;                 // whether the file is there, and ours
    FsResultSetReader* reader_ = nullptr;  // the caller's
    std::unique_ptr<FsResultSetWriter> writer_;
};

}  // namespace fscanner
