#pragma once

#include <array>

#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_serializator.h"

namespace fscanner {

class AbstractFile;

/// Saves to and loads from a file at its current position. A number is four bytes, the most
/// significant first. A string is the number of its UTF-8 bytes plus 1, followed by these bytes
/// without a terminator. The number 0 stands for null.
///
/// The only error is -1: the file is null, a read or write was short, or a string is longer
/// than the rest of the file. After a failed load the position is undefined.
class FsSerializator_OnFile : public FsSerializator {
public:
    /// With `ownsFile` the destructor closes the file. It never deletes the object.
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

/// The error code for a short read or write of a file: always -1.
int getFileErrorCode(AbstractFile* file);

}  // namespace fscanner
