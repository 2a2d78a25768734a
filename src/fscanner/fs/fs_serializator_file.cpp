#include "fscanner/fs/fs_serializator_file.h"

#include <climits>
#include <cstring>
#include <cwchar>
#include <new>

#include "fscanner/platform/abstract_file.h"

namespace fscanner {

// The destructor is defined here so that the virtual table is emitted in this file only.
FsSerializator::~FsSerializator() = default;

namespace {

constexpr unsigned kBytesPerCharacter = 6;  // the longest form of UTF-8

// Lengths up to this one are not checked against the file's end. A check costs a few system
// calls for a stream, and a wrong length costs little memory.
constexpr unsigned kTrustedCount = 4096;

std::array<unsigned char, 4> bigEndian(unsigned v) {
    return {static_cast<unsigned char>(v >> 24), static_cast<unsigned char>(v >> 16),
            static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)};
}

}  // namespace

FsSerializator_OnFile::FsSerializator_OnFile(AbstractFile* file, bool ownsFile)
    : file_(file), ownsFile_(ownsFile), lastError_(file != nullptr ? 0 : getFileErrorCode(file)) {}

FsSerializator_OnFile::~FsSerializator_OnFile() {
    if (ownsFile_ && file_ != nullptr) file_->close();
}

bool FsSerializator_OnFile::fail() {
    lastError_ = getFileErrorCode(file_);
    return false;
}

bool FsSerializator_OnFile::save(const void* bytes, unsigned count) {
    if (lastError_ != 0) return false;
    if (file_ == nullptr) return fail();
    return file_->write(bytes, count) == count || fail();
}

bool FsSerializator_OnFile::load(void* bytes, unsigned count) {
    if (lastError_ != 0) return false;
    if (file_ == nullptr) return fail();
    return file_->read(bytes, count) == count || fail();
}

bool FsSerializator_OnFile::saveUnsigned32(unsigned int v) {
    return save(bigEndian(v).data(), sizeof v);
}

bool FsSerializator_OnFile::saveInteger32(int v) {
    return saveUnsigned32(static_cast<unsigned>(v));
}

bool FsSerializator_OnFile::saveString(const wchar_t* s) {
    if (lastError_ != 0) return false;
    if (s == nullptr) return saveUnsigned32(0);
    const std::size_t characters = std::wcslen(s);
    if (characters >= UINT_MAX / kBytesPerCharacter) return fail();
    if (!encoded_.reserve(static_cast<unsigned>(characters) * kBytesPerCharacter + 1)) {
        return fail();
    }
    stringToUTF8(encoded_, s);
    // The result of the encoder counts characters; the format counts bytes.
    const auto bytes =
        static_cast<unsigned>(std::strlen(reinterpret_cast<const char*>(encoded_.data())));
    return saveUnsigned32(bytes + 1) && (bytes == 0 || save(encoded_.data(), bytes));
}

unsigned int FsSerializator_OnFile::loadUnsigned32() {
    std::array<unsigned char, 4> b;
    if (!load(b.data(), sizeof b)) return 0;
    return static_cast<unsigned>(b[0]) << 24 | static_cast<unsigned>(b[1]) << 16 |
           static_cast<unsigned>(b[2]) << 8 | b[3];
}

int FsSerializator_OnFile::loadInteger32() {
    return static_cast<int>(loadUnsigned32());
}

// Whether the file has `count` bytes left. Seeks to the end of the content: the size of a file
// that grows in steps is larger than its content.
bool FsSerializator_OnFile::holds(unsigned count) {
    const long position = file_->tell();
    if (position < 0 || !file_->seek(0, SEEK_FROM_END)) return false;
    const long end = file_->tell();
    return file_->seek(position, SEEK_FROM_START) && end >= position &&
           static_cast<unsigned long>(end - position) >= count;
}

// A buffer for `count` bytes. Null if the file has fewer bytes left, or without memory.
unsigned char* FsSerializator_OnFile::textRoom(unsigned count) {
    if (count < shortText_.size()) return shortText_.data();
    if (count > kTrustedCount && !holds(count - 1)) return nullptr;
    return longText_.reserve(count) ? longText_.data() : nullptr;
}

wchar_t* FsSerializator_OnFile::loadString() {
    const unsigned count = loadUnsigned32();
    if (lastError_ != 0 || count == 0) return nullptr;
    unsigned char* bytes = textRoom(count);
    if (bytes == nullptr) {
        fail();
        return nullptr;
    }
    if (count > 1 && !load(bytes, count - 1)) return nullptr;
    bytes[count - 1] = 0;
    wchar_t* text = new (std::nothrow) wchar_t[count];
    if (text == nullptr) {
        fail();
        return nullptr;
    }
    utf8ToWideChar(text, count, bytes);
    return text;
}

int getFileErrorCode(AbstractFile*) {
    return -1;
}

}  // namespace fscanner
