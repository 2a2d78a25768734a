#pragma once

#include "fscanner/export.h"

namespace fscanner {

class FsFileInfo;

/// The channel between a query engine, which writes the files that it finds, and
/// the host, which reads them. One thread at a time. Nothing here throws.

/// Keys of `FsResultSetReader::sort`.
enum FsSortKey : unsigned {
    FS_SORT_PATH = 1,
    FS_SORT_NAME = 2,
    FS_SORT_PATHNAME = 3,
    FS_SORT_SIZE = 4
};
/// Directions of `FsResultSetReader::sort`.
enum FsSortDirection : unsigned { FS_SORT_ASCENDING = 1, FS_SORT_DESCENDING = 2 };

/// Takes records. A host may derive from it to receive matches as they are found.
class FSCANNER_EXPORT FsResultSetWriter {
public:
    virtual ~FsResultSetWriter();
    /// Adds a record of which only the size and the attributes are known.
    /// `path` is the directory. 0 on success, -1 on failure.
    virtual int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                          unsigned attributes) = 0;
    /// Adds a copy of the record. 0 on success, -1 on failure.
    virtual int addRecord(const FsFileInfo& record) = 0;
    /// Ends writing. Returns 0.
    virtual int close() = 0;
};

/// Hands records out in order. Deleting it frees the records.
class FSCANNER_EXPORT FsResultSetReader {
public:
    virtual ~FsResultSetReader();
    /// Goes to the first record; required before the first `getNext` of the
    /// file-backed form.
    virtual void moveFirst() = 0;
    /// Copies the next record to `out`; false when there is none.
    virtual bool getNext(FsFileInfo& out) = 0;
    /// Sorts by an `FsSortKey` in an `FsSortDirection`; call `moveFirst` after it.
    /// Non-zero on success; the in-memory form does nothing and returns 0.
    virtual int sort(unsigned key, unsigned direction, bool caseSensitive) = 0;
    /// Remembers the position, and returns to it. Non-zero on success.
    virtual int setBookmark() = 0;
    virtual int toBookmark() = 0;
};

/// Owns its writer; the reader belongs to the caller of `getReader`, outlives
/// the set and owns the records.
class FSCANNER_EXPORT FsResultSet {
public:
    virtual ~FsResultSet();
    /// The one reader. The first call closes the writer.
    virtual FsResultSetReader* getReader() = 0;
    /// The one writer; the set keeps ownership.
    virtual FsResultSetWriter* getWriter() = 0;
};

}  // namespace fscanner
