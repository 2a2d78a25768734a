#pragma once

#include <memory>
#include <string>

#include "fscanner/export.h"
#include "fscanner/fs/fs_resultset.h"

namespace fscanner {

class FsSerializator;
class LinuxMmFile;
class RemovableFile;
class TemporaryFile;

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
    /// Cuts the file to the bytes written; removes it where that fails, if the name still
    /// stands for the file that was created or emptied.
    int close() override;

private:
    std::unique_ptr<RemovableFile> removable_;
    std::unique_ptr<LinuxMmFile> file_;
    std::unique_ptr<FsSerializator> serializator_;  // closes the file
};

/// Reads a record file and removes it in the end: the regular file that the name stood for
/// when the object was made, or when `moveFirst` opened it last. What else the name may stand
/// for by then, a link included, stays.
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
    friend class FsResultSet_OnFile;
    FSCANNER_HIDDEN explicit FsResultSetReader_OnFile(std::shared_ptr<TemporaryFile> unnamed);
    FSCANNER_HIDDEN void closeFile();

    std::unique_ptr<RemovableFile> source_;
    std::shared_ptr<TemporaryFile> unnamed_;       // null: a file of its own name
    std::shared_ptr<RemovableFile> registration_;  // of a set's file
    unsigned bookmark_ = 0;
    std::unique_ptr<LinuxMmFile> file_;
    std::unique_ptr<FsSerializator> serializator_;  // closes the file
};

/// Asks for a result file that no other process can find.
enum class FsUnnamed { unnamed };

/// The result set in a temporary file, for more records than memory should hold.
///
/// The file is created when the writer is, readable by its owner alone; what others
/// made by the name since it was chosen is neither written, read nor removed. It is
/// removed with the reader, or with the set if there was none, or by the cleanup
/// handlers of `FsResourceManager`. The process ends with exit status 41 when no
/// temporary name can be found.
class FSCANNER_EXPORT FsResultSet_OnFile : public FsResultSet {
public:
    FsResultSet_OnFile();
    /// The file has no name from the start, where the system allows it, so that nothing of it
    /// is left however the process ends; else one that is removed as above. It lies in /tmp,
    /// or in the current directory. Every record fails where it cannot be made.
    explicit FsResultSet_OnFile(FsUnnamed);
    ~FsResultSet_OnFile() override;
    FsResultSet_OnFile(const FsResultSet_OnFile&) = delete;
    FsResultSet_OnFile& operator=(const FsResultSet_OnFile&) = delete;

    /// The reader has no file open yet: call `moveFirst`.
    FsResultSetReader* getReader() override;
    FsResultSetWriter* getWriter() override;

private:
    FSCANNER_HIDDEN void chooseName();
    FSCANNER_HIDDEN bool claimFile();
    FSCANNER_HIDDEN const char* pathToWrite();

    std::shared_ptr<RemovableFile> file_;  // registered with the cleanup handlers; or
    std::shared_ptr<TemporaryFile> unnamed_;
    bool claimed_ = false;                 // whether it was made, by us
    FsResultSetReader* reader_ = nullptr;  // the caller's
    std::unique_ptr<FsResultSetWriter> writer_;
};

}  // namespace fscanner
