#include "fscanner/platform/linuxfile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "fscanner/common/utf8.h"

namespace fscanner {

namespace {

constexpr unsigned kChunk = 32768;
constexpr mode_t kPermissions = 0660;

// Whether the length fits the 32-bit sizes of a mapped file.
bool fits(off_t length) {
    return length >= 0 && length <= static_cast<off_t>(UINT_MAX);
}

}  // namespace

LinuxMmFile::LinuxMmFile(const char* name) : name_(name != nullptr ? ::strdup(name) : nullptr) {}

LinuxMmFile::~LinuxMmFile() {
    LinuxMmFile::close();
}

bool LinuxMmFile::create() {
    if (!name_ || isOpen()) return false;
    file_ = openRegularFile(name_.get(), OpenMode::emptied, kPermissions);
    if (!isOpen()) return false;
    logicalSize_ = mappedLength_ = position_ = 0;
    changed_ = true;  // the old content is gone, even if nothing is written
    return true;
}

// An empty file is not mapped: mmap refuses a length of 0. The first write maps it.
bool LinuxMmFile::open() {
    if (!name_ || isOpen()) return false;
    Descriptor file = openRegularFile(name_.get(), OpenMode::existing, kPermissions);
    struct stat info;
    if (!file || ::fstat(file.get(), &info) != 0 || !fits(info.st_size)) return false;
    file_ = std::move(file);
    logicalSize_ = mappedLength_ = static_cast<unsigned>(info.st_size);
    position_ = 0;
    if (mappedLength_ == 0 || map(mappedLength_)) return true;
    file_.close();
    logicalSize_ = mappedLength_ = 0;
    return false;
}

// Unmaps first: the pages behind the content must not be accessed once the file is truncated.
bool LinuxMmFile::close() {
    if (!isOpen()) return false;
    unmap();
    if (!bringToDisk()) return false;
    const bool closed = file_.close();
    logicalSize_ = mappedLength_ = position_ = 0;
    endMet_ = changed_ = false;
    return closed;
}

// Truncates before it syncs, so that the zeros behind the content do not come back
// after a power failure.
bool LinuxMmFile::bringToDisk() {
    if (!changed_) return true;
    if (uninterrupted([this] { return ::ftruncate(file_.get(), logicalSize_); }) != 0) return false;
    return !syncOnClose_ || ::fsync(file_.get()) == 0;
}

bool LinuxMmFile::sync() {
    return !changed_ || ::fsync(file_.get()) == 0;
}

void LinuxMmFile::expectRandomAccess() {
    randomAccess_ = true;
    if (address_ != nullptr) advise(mappedLength_);
}

void LinuxMmFile::readAhead(unsigned offset, unsigned count) const {
    if (address_ == nullptr || offset >= logicalSize_) return;
    static const auto page = static_cast<unsigned>(::sysconf(_SC_PAGESIZE));
    const unsigned start = offset - offset % page;
    const unsigned length = std::min(count, logicalSize_ - offset) + offset - start;
    ::madvise(address_ + start, length, MADV_WILLNEED);
}

unsigned int LinuxMmFile::read(void* buffer, unsigned int count) {
    const unsigned left = address_ != nullptr ? logicalSize_ - position_ : 0;
    const unsigned available = std::min(count, left);
    endMet_ = available < count;
    if (available == 0) return 0;
    std::memcpy(buffer, address_ + position_, available);
    position_ += available;
    return available;
}

unsigned int LinuxMmFile::write(const void* buffer, unsigned int count) {
    if (!isOpen() || count == 0) return 0;
    if (position_ < watchedEnd_ && !showBlocks(position_, count)) return 0;
    if (count > logicalSize_ - position_ && !grow(count)) return 0;
    if (address_ == nullptr) return 0;
    std::memcpy(address_ + position_, buffer, count);
    position_ += count;
    changed_ = true;
    return count;
}

// Makes room for `count` bytes at the position; they pass the logical size.
//
// When they fit in the mapping, the content ends where the write ends. When the
// file has to grow, the content becomes `count` bytes longer, even if the write
// starts before the old end (deliberate). For appends the two are the same; an
// overlapping write in the second case leaves zeros behind its bytes.
bool LinuxMmFile::grow(unsigned count) {
    using Wide = unsigned long long;
    if (Wide{logicalSize_} + count <= mappedLength_) {
        if (address_ == nullptr) return false;
        logicalSize_ = position_ + count;
        return true;
    }
    if (address_ == nullptr && mappedLength_ != 0) return false;
    const Wide length = Wide{mappedLength_} + count / kChunk * kChunk + kChunk;
    if (length > UINT_MAX) return false;
    if (!extendFile(static_cast<unsigned>(length)) || !map(static_cast<unsigned>(length))) {
        return false;
    }
    logicalSize_ += count;
    mappedLength_ = static_cast<unsigned>(length);
    return true;
}

// Allocates the blocks too (see the class comment). If the disk fills up half-way,
// the part that was added is truncated again by `close`.
bool LinuxMmFile::extendFile(unsigned length) {
    changed_ = true;
    int error;  // posix_fallocate returns the error and does not set errno
    do {
        error = ::posix_fallocate(file_.get(), mappedLength_, length - mappedLength_);
    } while (error == EINTR);
    return error == 0;
}

// Maps the file's first `length` bytes. On failure the old mapping stays. mremap keeps the
// advice given for the old one.
bool LinuxMmFile::map(unsigned length) {
    void* address = address_ == nullptr ? ::mmap(nullptr, length, PROT_READ | PROT_WRITE,
                                                 MAP_SHARED, file_.get(), 0)
                                        : ::mremap(address_, mappedLength_, length, MREMAP_MAYMOVE);
    if (address == MAP_FAILED) return false;
    const bool first = address_ == nullptr;
    address_ = static_cast<std::byte*>(address);
    if (first) advise(length);
    return true;
}

// Only a hint: a failure costs nothing but time.
void LinuxMmFile::advise(unsigned length) const {
    if (randomAccess_) ::madvise(address_, length, MADV_RANDOM);
}

void LinuxMmFile::unmap() {
    if (address_ != nullptr) ::munmap(address_, mappedLength_);
    address_ = nullptr;
    watchedEnd_ = 0;
    watches_.clear();
}

std::wstring LinuxMmFile::path() const {
    return name_ ? toWide(name_.get()) : std::wstring();
}

void LinuxMmFile::addWatch(BlockWatch& watch) {
    if (std::find(watches_.begin(), watches_.end(), &watch) == watches_.end()) {
        watches_.push_back(&watch);
    }
    watchedEnd_ = address_ != nullptr ? logicalSize_ : 0;
    shown_.assign((std::size_t{watchedEnd_} + kWatchedBlock - 1) / kWatchedBlock, false);
}

bool LinuxMmFile::showBlocks(unsigned offset, unsigned count) {
    const unsigned last = (offset + std::min(count, watchedEnd_ - offset) - 1) / kWatchedBlock;
    for (unsigned block = offset / kWatchedBlock; block <= last; ++block) {
        if (!shown_[block] && !showBlock(block)) return false;
    }
    return true;
}

bool LinuxMmFile::showBlock(unsigned block) {
    const unsigned start = block * kWatchedBlock;
    const std::span<const std::byte> bytes(address_ + start,
                                           std::min(kWatchedBlock, watchedEnd_ - start));
    for (BlockWatch* watch : watches_) {
        if (!watch->beforeChange(start, bytes)) return false;
    }
    shown_[block] = true;
    return true;
}

bool LinuxMmFile::seek(long offset, int origin) {
    long base = 0;
    if (origin == SEEK_FROM_CURRENT) base = position_;
    if (origin == SEEK_FROM_END) base = logicalSize_;
    const bool known = origin >= SEEK_FROM_START && origin <= SEEK_FROM_END;
    if (!known || offset < -base || offset > static_cast<long>(logicalSize_) - base) return false;
    position_ = static_cast<unsigned>(base + offset);
    return true;
}

bool LinuxMmFile::size(unsigned int* out) {
    struct stat info;
    if (!name_ || out == nullptr || ::stat(name_.get(), &info) != 0 || !fits(info.st_size)) {
        return false;
    }
    *out = static_cast<unsigned>(info.st_size);
    return true;
}

}  // namespace fscanner
