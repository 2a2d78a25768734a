#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fscanner/common/heap_string.h"
#include "fscanner/platform/abstract_file.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {

/// Is shown what a mapped file held before it is changed.
class BlockWatch {
public:
    virtual ~BlockWatch() = default;
    /// The block at `offset` is about to be changed for the first time since the watch was
    /// added. False: it must not be changed. May be called again for the same block.
    virtual bool beforeChange(unsigned offset, std::span<const std::byte> block) = 0;
};

/// A memory-mapped file of at most 4 GiB that grows in steps of 32 KiB and is cut
/// back to its content when it is closed.
///
///     0           position       logical size          mapped length
///     |---------------|---------------|---------------------|
///      content                         zeros, cut by close()
///
/// The file on disk always has the mapped length, and its blocks exist: a full
/// disk fails the `write` that grows the file, where a sparse file would kill the
/// process at the first touch of a page. Nothing is synced before `close`.
///
/// Nobody else may shorten the file while it is open: touching a page past its
/// end raises SIGBUS, which a library cannot handle for its host. Users keep
/// other writers out by a lock of their own.
///
/// After a failed `close`, or when the file could not be mapped, reading and
/// writing transfer 0 bytes.
class LinuxMmFile final : public AbstractFile {
public:
    explicit LinuxMmFile(const char* name);
    ~LinuxMmFile() override;

    /// False when the object is open already.
    bool create() override;
    bool open() override;
    /// False when nothing is open, and when the content could not be brought to
    /// disk; the object may be closed again then.
    bool close() override;
    unsigned int read(void* buffer, unsigned int count) override;
    unsigned int write(const void* buffer, unsigned int count) override;
    /// Fails, and leaves the position, outside 0 to the logical size. Never
    /// touches the end flag.
    bool seek(long offset, int origin) override;
    long tell() override { return position_; }
    /// Whether the last `read` met the end of the content.
    bool eof() override { return endMet_; }
    /// The length on disk, which is the mapped length while the file is open.
    bool size(unsigned int* out) override;

    /// The content without a copy; empty when nothing is mapped. Valid until the
    /// next write or close.
    std::span<const std::byte> content() const { return {address_, address_ ? logicalSize_ : 0}; }
    /// These bytes of the content to be changed in place, all of them. Null where they are not
    /// inside it, or a watch refuses. Valid until the next write or close.
    std::byte* change(unsigned offset, unsigned count) {
        const bool inside = count <= logicalSize_ && offset <= logicalSize_ - count;
        if (address_ == nullptr || !inside) return nullptr;
        if (offset < watchedEnd_ && !showBlocks(offset, count)) return nullptr;
        changed_ = true;
        return address_ + offset;
    }
    /// Blocks of this length, the last may be shorter, are shown to watches.
    static constexpr unsigned WATCHED_BLOCK = 128;
    /// From now on the watch, which must outlive the next `close`, is shown each block of the
    /// present content before its first change. What lies behind that content is not watched.
    /// A watch that is added again is shown all blocks anew.
    void addWatch(BlockWatch& watch);
    unsigned logicalSize() const { return logicalSize_; }
    /// As it was given; empty when that was null.
    std::wstring path() const;
    /// Waits until what was written so far is on disk. The length there stays the
    /// padded one until `close`. True at once when nothing was written.
    bool sync();
    /// Says that reads will jump about: nothing is read ahead of a cold one.
    void expectRandomAccess();
    /// Whether `close` waits until what was written is on disk. On at first; for
    /// files that need not survive the system it is a waste.
    void setSyncOnClose(bool on) { syncOnClose_ = on; }

private:
    bool isOpen() const { return static_cast<bool>(file_); }
    bool grow(unsigned count);
    bool showBlocks(unsigned offset, unsigned count);
    bool showBlock(unsigned block);
    bool extendFile(unsigned length);
    bool map(unsigned length);
    void unmap();
    void advise(unsigned length) const;
    bool bringToDisk();

    Descriptor file_;
    unsigned logicalSize_ = 0;
    unsigned mappedLength_ = 0;
    unsigned position_ = 0;
    unsigned watchedEnd_ = 0;  // the content's when the last watch was added
    std::byte* address_ = nullptr;
    bool endMet_ = false;
    bool changed_ = false;
    bool syncOnClose_ = true;
    bool randomAccess_ = false;
    std::vector<BlockWatch*> watches_;
    std::vector<bool> shown_;  // by block
    std::unique_ptr<char, FreeDeleter> name_;
};

}  // namespace fscanner
