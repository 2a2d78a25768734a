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
    /// Creates the file, or empties it. If that fails, or `name` is null, `addRecord` fails.
    explicit FsResultSetWriter_OnFile(const char* name);
    ~FsResultSetWriter_OnFile() override;

    /// -1 after `close`, and from the first failed write on.
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override;
    int addRecord(const FsFileInfo& record) override;
    /// Cuts the file to the bytes written. If that fails, removes the file, unless the name
    /// means another file by now. Returns 0 in any case.
    int close() override;

private:
    std::unique_ptr<RemovableFile> removable_;
    std::unique_ptr<LinuxMmFile> file_;
    std::unique_ptr<FsSerializator> serializator_;  // closes the file
};

/// Reads a record file, and removes it when the reader is destroyed. It removes only the regular
/// file that had the name when the reader was made, or when `moveFirst` last opened it. A link
/// or another file that took the name since then stays.
class FSCANNER_EXPORT FsResultSetReader_OnFile : public FsResultSetReader {
public:
    /// Does not open the file. A null name is a programming error: an assertion fails.
    explicit FsResultSetReader_OnFile(const char* filename);
    ~FsResultSetReader_OnFile() override;

    /// Opens the file and goes to its start. The bookmark stays.
    void moveFirst() override;
    /// Clears `out` and loads the next record. After a failure every call fails until
    /// `moveFirst` or `toBookmark`.
    bool getNext(FsFileInfo& out) override;
    /// Sorts the records in the file, and closes it: call `moveFirst` afterwards. Needs disk
    /// space for a second copy. Returns 0 for an unknown key; the file stays open then.
    /// Otherwise returns 1, even if the sort failed; the debug log tells.
    int sort(unsigned key, unsigned direction, bool caseSensitive) override;
    int setBookmark() override;
    int toBookmark() override;

private:
    friend class FsResultSet_OnFile;
    FSCANNER_HIDDEN explicit FsResultSetReader_OnFile(std::shared_ptr<TemporaryFile> unnamed);
    FSCANNER_HIDDEN void closeFile();

    std::unique_ptr<RemovableFile> source_;
    std::shared_ptr<TemporaryFile> unnamed_;       // null for a file that has a name
    std::shared_ptr<RemovableFile> registration_;  // shared with the set, see getReader
    unsigned bookmark_ = 0;
    std::unique_ptr<LinuxMmFile> file_;
    std::unique_ptr<FsSerializator> serializator_;  // closes the file
};

/// Selects the constructor for a result file without a name.
enum class FsUnnamed { unnamed };

/// The result set in a temporary file, for more records than memory should hold.
///
/// The file is created together with the writer; only its owner can read it. A file that
/// another process made under the same name is not written, read or removed. The reader
/// removes the file when it is destroyed. Without a reader the set does, and after an abnormal
/// stop the cleanup handlers of `FsResourceManager`. The process ends with exit status 41 if no
/// temporary name can be found.
class FSCANNER_EXPORT FsResultSet_OnFile : public FsResultSet {
public:
    FsResultSet_OnFile();
    /// Makes a file without a name, in /tmp or else in the current directory. Nothing of it is
    /// left, however the process ends. If the system cannot make such a file, it has a name and
    /// is removed as above. If no file can be made, `addRecord` fails.
    explicit FsResultSet_OnFile(FsUnnamed);
    ~FsResultSet_OnFile() override;
    FsResultSet_OnFile(const FsResultSet_OnFile&) = delete;
    FsResultSet_OnFile& operator=(const FsResultSet_OnFile&) = delete;

    /// The reader has not opened the file yet: call `moveFirst`.
    FsResultSetReader* getReader() override;
    FsResultSetWriter* getWriter() override;

private:
    FSCANNER_HIDDEN void chooseName();
    FSCANNER_HIDDEN bool claimFile();
    FSCANNER_HIDDEN const char* pathToWrite();

    // At most one of these two is set.
    std::shared_ptr<RemovableFile> file_;  // registered with the cleanup handlers
    std::shared_ptr<TemporaryFile> unnamed_;
    bool claimed_ = false;                 // whether this set has created the file
    FsResultSetReader* reader_ = nullptr;  // the caller's
    std::unique_ptr<FsResultSetWriter> writer_;
};

}  // namespace fscanner
