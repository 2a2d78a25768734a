#pragma once

#include <array>

#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_serializator.h"

namespace fscanner {

class AbstractFile;

/// Saves to and loads from a file at its position. Numbers are four bytes, the
/// most significant first. A string is its length in bytes plus 1 as a number,
/// then that many UTF-8 bytes less one; a count of 0 stands for null.
///
/// The only error is -1: a null file, a shortfall, or a count that promises more
/// bytes than the file holds. After a failed load the position is anywhere.
class FsSerializator_OnFile : public FsSerializator {
public:
    /// With `ownsFile` the destructor closes the file; it never deletes it.
    FsSerializator_OnFile(AbstractFile* file, bool ownsFile);
    FsSerializator_OnFile(const FsSerializator_OnFile&) = delete;
    FsSerializator_OnFile& operator=(const FsSerializator_OnFile&) = delete;

    bool saveString(const wchar_t* s) override;
    bool saveInteger32(int v) override;
    bool saveUnsigned32(unsigned int v) override;
    wchar_t* loadString() override;
    int loadInteger32() override;
    unsigned int loadUnsigned32() override;
    int getLastError() override { return lastError_; }
    void reset() override { lastError_ = 0; }
    ~FsSerializator_OnFile() override;

private:
    bool save(const void* bytes, unsigned count);
    bool load(void* bytes, unsigned count);
    bool fail();
    bool holds(unsigned count);
    unsigned char* textRoom(unsigned count);

    AbstractFile* file_;
    bool ownsFile_;
    int lastError_;
    DynamicBuffer<unsigned char> encoded_;
    DynamicBuffer<unsigned char> longText_;
    std::array<unsigned char, 128> shortText_;
};

/// The error code of a file's shortfall: -1, whatever the file.
int getFileErrorCode(AbstractFile* file);

}  // namespace fscanner
