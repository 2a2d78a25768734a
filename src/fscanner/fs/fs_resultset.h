#pragma once

#include "fscanner/export.h"

namespace fscanner {

class FsFileInfo;

// The channel between a query engine, which writes the files that it finds, and the host,
// which reads them. One thread at a time. Nothing here throws.

/// Keys of `FsResultSetReader::sort`.
enum FsSortKey : unsigned {
    FS_SORT_PATH = 1,
    FS_SORT_NAME = 2,
    FS_SORT_PATHNAME = 3,
    FS_SORT_SIZE = 4
};
/// Directions of `FsResultSetReader::sort`.
enum FsSortDirection : unsigned { FS_SORT_ASCENDING = 1, FS_SORT_DESCENDING = 2 };

/// Receives records. A host may derive from it to receive matches as they are found. Such a
/// class should not throw: an exception ends the query.
class FSCANNER_EXPORT FsResultSetWriter {
public:
    virtual ~FsResultSetWriter();
    /// Adds a record that knows only its size in bytes and its attributes
    /// (`FsFileAttribute`). `path` is the directory. Both texts are copied and may be null.
    /// 0 on success, negative on failure.
    virtual int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                          unsigned attributes) = 0;
    /// Adds a copy of the record. 0 on success, negative on failure.
    virtual int addRecord(const FsFileInfo& record) = 0;
    /// Ends the writing. Returns 0.
    virtual int close() = 0;
};

/// Returns records in order. Deleting the reader frees the records.
class FSCANNER_EXPORT FsResultSetReader {
public:
    virtual ~FsResultSetReader();
    /// Goes to the first record. The file-backed form needs this call before the first
    /// `getNext`.
    virtual void moveFirst() = 0;
    /// Copies the next record to `out`. False if there is none, or if it cannot be read.
    virtual bool getNext(FsFileInfo& out) = 0;
    /// Sorts by an `FsSortKey` in an `FsSortDirection`. Call `moveFirst` afterwards. Non-zero
    /// if a sort was attempted. The in-memory form does nothing and returns 0.
    virtual int sort(unsigned key, unsigned direction, bool caseSensitive) = 0;
    /// Remembers the current position. Non-zero on success.
    virtual int setBookmark() = 0;
    /// Returns to the remembered position. Non-zero on success.
    virtual int toBookmark() = 0;
};

/// A place for records, with one writer and one reader. The set owns the writer. The reader
/// belongs to the caller of `getReader`, owns the records, and may outlive the set.
class FSCANNER_EXPORT FsResultSet {
public:
    virtual ~FsResultSet();
    /// The reader. The first call makes it and closes the writer; the caller deletes it. Later
    /// calls return the same pointer: do not call again after the reader was deleted.
    virtual FsResultSetReader* getReader() = 0;
    /// The writer. The set owns it.
    virtual FsResultSetWriter* getWriter() = 0;
};

}  // namespace fscanner
