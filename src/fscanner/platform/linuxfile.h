#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fscanner/common/strings.h"
#include "fscanner/platform/abstract_file.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {

/// Observes a mapped file: gets the old content of each block before it changes.
class BlockWatch {
public:
    virtual ~BlockWatch() = default;
    /// Called before the block at `offset` is changed for the first time since the watch was
    /// added; `block` is its present content. False forbids the change. May be called again for
    /// the same block.
    virtual bool beforeChange(unsigned offset, std::span<const std::byte> block) = 0;
};

/// A memory-mapped file of at most 4 GiB that grows in steps of 32 KiB and is
/// truncated to its content when it is closed.
///
///     0           position       logical size          mapped length
///     |---------------|---------------|---------------------|
///      content                         zeros, cut by close()
///
/// While it is open, the file on disk has the mapped length, and its blocks are
/// allocated. So a full disk fails the `write` that grows the file; with a sparse
/// file it would kill the process by SIGBUS at the first access to a page. Nothing is
/// synced before `sync` or `close`.
///
/// Nobody else may shorten the file while it is open: an access behind its end raises
/// SIGBUS, which a library cannot handle for its host. Users keep other writers out by
/// a lock of their own.
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
    /// False when nothing is open, and when the content could not be truncated and
    /// synced; then `close` may be called again.
    bool close() override;
    unsigned int read(void* buffer, unsigned int count) override;
    unsigned int write(const void* buffer, unsigned int count) override;
    /// False, and the position stays, for a target outside 0 to the logical size. Does
    /// not change the result of `eof`.
    bool seek(long offset, int origin) override;
    long tell() override { return position_; }
    /// Whether the last `read` reached the end of the content before it had `count` bytes.
    bool eof() override { return endMet_; }
    /// The length on disk, which is the mapped length while the file is open.
    bool size(unsigned int* out) override;

    /// The content in place, without a copy; empty when nothing is mapped. Valid until
    /// the next write or close.
    std::span<const std::byte> content() const { return {address_, address_ ? logicalSize_ : 0}; }
    /// The `count` bytes at `offset`, for the caller to overwrite in place; `count` is not 0. Null
    /// when they are not inside the content, or a watch forbids the change. Valid until the next
    /// write or close.
    std::byte* change(unsigned offset, unsigned count) {
        const bool inside = count <= logicalSize_ && offset <= logicalSize_ - count;
        if (address_ == nullptr || !inside) return nullptr;
        if (offset < watchedEnd_ && !showBlocks(offset, count)) return nullptr;
        changed_ = true;
        return address_ + offset;
    }
    /// The length of the blocks that watches get; the last one may be shorter.
    static constexpr unsigned kWatchedBlock = 128;
    /// Calls `watch` before the first change of each block of the present content. Later content,
    /// behind its end, is not watched. Adding a watch, also a second time, starts anew: all
    /// watches get all blocks of the then present content. `watch` must live until the next
    /// `close`, which removes it.
    void addWatch(BlockWatch& watch);
    unsigned logicalSize() const { return logicalSize_; }
    /// The path as given to the constructor; empty for null.
    std::wstring path() const;
    /// Waits until everything written so far is on disk. The file keeps its padded
    /// length until `close`. Returns true at once when nothing was written.
    bool sync();
    /// Turns the kernel's read-ahead off, for access at random positions.
    void expectRandomAccess();
    /// Starts reading these bytes, as far as the file has them, and does not wait. Only a hint.
    void readAhead(unsigned offset, unsigned count) const;
    /// Whether `close` waits until the content is on disk. On by default. Turn it off
    /// for files that a crash of the system may lose.
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
    unsigned watchedEnd_ = 0;  // the logical size when the last watch was added
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
