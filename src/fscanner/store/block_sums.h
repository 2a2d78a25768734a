#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fscanner/platform/linuxfile.h"

namespace fscanner {

/// The checksums of the blocks of one file. Each block is compared with its checksum once after
/// the file was opened, when it is first used.
///
///     0          BLOCK                    size           the file's present end
///     |------------|---------- ... ---------|-------------------|
///       blocks with checksums: compared before  appended since the opening:
///       their first use and first change        never compared
///
/// Changed and appended blocks get new checksums when the file is closed, or by `renew`. One thread
/// at a time.
class BlockSums final : public BlockWatch {
public:
    /// The length of a block in bytes: one page, so that a lookup through an index compares no
    /// more than the pages that it reads.
    static constexpr unsigned BLOCK = 4096;
    /// The length of a stored checksum in bytes: CRC-32C, little-endian.
    static constexpr unsigned SUM = 4;

    static unsigned blocksOf(unsigned size) { return size / BLOCK + (size % BLOCK != 0); }

    /// `size`: the length of the file in bytes, 0 for a new file. `sums`: its checksums, which must
    /// stay valid at that address. `name` is used in the log.
    BlockSums(std::wstring name, unsigned size, const std::byte* sums)
        : name_(std::move(name)), size_(size), sums_(sums) {}
    BlockSums(const BlockSums&) = delete;
    BlockSums& operator=(const BlockSums&) = delete;

    /// Attaches to an open file, which must live until `close`. False, and the file counts as
    /// damaged, when its length differs from `size()`.
    bool open(LinuxMmFile& file);
    /// Computes the checksums of an open file that has none yet.
    void take(LinuxMmFile& file) {
        file_ = &file;
        close();
    }
    /// Computes new checksums for the blocks that changed, and detaches from the file. To be
    /// called before the file is closed.
    void close();
    /// Computes new checksums of the open file and stays attached to it.
    void renew(LinuxMmFile& file) {
        close();
        open(file);
    }

    /// Whether the blocks that contain these bytes match their checksums. The bytes must be inside
    /// the open file, and `count` must not be 0. A mismatch is noted as damage.
    bool holds(unsigned offset, unsigned count) {
        return offset >= unchecked_ || holdsBlocks(offset / BLOCK, (offset + count - 1) / BLOCK);
    }
    /// Whether all blocks match. Faster than block by block.
    bool holdsAll() { return isCompared() || compareAll(); }
    /// Whether no block is left to compare.
    bool isCompared() const { return unchecked_ == 0; }
    /// Whether a block or the file's length was found damaged.
    bool damaged() const { return damaged_; }

    /// Notes the change. Forbids the change of a damaged block, because a new checksum would hide
    /// the damage.
    bool beforeChange(unsigned offset, std::span<const std::byte> bytes) override;

    const std::wstring& name() const { return name_; }
    void rename(std::wstring name) { name_ = std::move(name); }
    /// The file's length at the last `close` (or as given to the constructor), and the checksums
    /// of that content.
    unsigned size() const { return size_; }
    std::span<const std::byte> sums() const { return {sums_, std::size_t{SUM} * blocksOf(size_)}; }

private:
    bool holdsBlocks(unsigned first, unsigned last) {
        for (unsigned block = first; block <= last; ++block)
            if (block < checked_.size() && !checked_[block] && !check(block)) return false;
        return true;
    }
    bool compareAll();
    bool check(unsigned block);
    bool fail(unsigned offset);
    bool isSumCurrent(unsigned block) const;
    unsigned knownLength(unsigned block) const { return std::min(BLOCK, size_ - block * BLOCK); }
    void sumUp(std::vector<std::byte>& sums) const;

    std::wstring name_;
    unsigned size_;
    const std::byte* sums_;
    std::vector<std::byte> own_;  // the memory of `sums_`, once computed here
    LinuxMmFile* file_ = nullptr;
    unsigned unchecked_ = 0;     // only below this offset may blocks be left to compare
    std::vector<bool> checked_;  // by block: was compared
    std::vector<bool> changed_;  // by block; empty when no block was changed
    bool damaged_ = false;
};

}  // namespace fscanner
