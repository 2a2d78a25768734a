#pragma once

namespace fscanner {

/// Origins of `AbstractFile::seek`: the library's own codes, not the system's.
enum SeekOrigin : int { SEEK_FROM_START = 1, SEEK_FROM_CURRENT = 2, SEEK_FROM_END = 3 };

/// One file of the library, read and written at a position. The order of the
/// virtual functions is fixed. One thread at a time.
class AbstractFile {
public:
    virtual ~AbstractFile() = default;
    /// Creates or truncates the file and opens it for reading and writing.
    virtual bool create() = 0;
    /// Opens an existing file for reading and writing.
    virtual bool open() = 0;
    virtual bool close() = 0;
    /// These return the number of bytes transferred.
    virtual unsigned int read(void* buffer, unsigned int count) = 0;
    virtual unsigned int write(const void* buffer, unsigned int count) = 0;
    /// `origin` is a `SeekOrigin`; any other code fails.
    virtual bool seek(long offset, int origin) = 0;
    virtual long tell() = 0;
    virtual bool eof() = 0;
    /// The length on disk in bytes. A file that is allocated ahead is longer on disk
    /// than its content; `seek(0, SEEK_FROM_END)` and `tell()` give the content's length.
    virtual bool size(unsigned int* out) = 0;
};

}  // namespace fscanner
