#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fscanner/platform/linuxfile.h"

namespace fscanner {

/// The checksums of the blocks of one file, and whether its blocks were compared with them
/// since it was opened.
///
///     0          BLOCK                    size           the file's present end
///     |------------|---------- ... ---------|-------------------|
///       known: compared when first asked for,   written since: not
///       and before they are changed             compared at all
///
/// What was changed or written gets new sums when the file is closed, or by `renew`. One thread at
/// a time.
class BlockSums final : public BlockWatch {
public:
    /// Of a file's bytes. A look-up by an index touches single pages, and compares no more.
    static constexpr unsigned BLOCK = 4096;
    /// What a sum takes, little-endian (CRC-32C).
    static constexpr unsigned SUM = 4;

    static unsigned blocksOf(unsigned size) { return size / BLOCK + (size % BLOCK != 0); }

    /// For a file of this length, whose sums lie at `sums` and stay there. 0 for a file that is
    /// made anew. `name` is for the log.
    BlockSums(std::wstring name, unsigned size, const std::byte* sums)
        : name_(std::move(name)), size_(size), sums_(sums) {}
    BlockSums(const BlockSums&) = delete;
    BlockSums& operator=(const BlockSums&) = delete;

    /// Goes with an open file from now to `close`. False, and it is damaged, where the file has
    /// another length.
    bool open(LinuxMmFile& file);
    /// Makes the sums of an open file that has none.
    void take(LinuxMmFile& file) {
        file_ = &file;
        close();
    }
    /// Makes new sums of what changed. To be called before the file is closed.
    void close();
    /// The same of the file, which stays open.
    void renew(LinuxMmFile& file) {
        close();
        open(file);
    }

    /// Whether these bytes of the open file, which has them, are as they were. What is not is
    /// damage.
    bool holds(unsigned offset, unsigned count) {
        return offset >= unchecked_ || holdsBlocks(offset / BLOCK, (offset + count - 1) / BLOCK);
    }
    /// Whether the whole file is; faster than block by block.
    bool holdsAll() { return isCompared() || compareAll(); }
    /// Whether nothing is left to compare.
    bool isCompared() const { return unchecked_ == 0; }
    /// Whether any block was found damaged, or the length.
    bool damaged() const { return damaged_; }

    /// Notes the change, and refuses that of a damaged block: its new sum would hide it.
    bool beforeChange(unsigned offset, std::span<const std::byte> bytes) override;

    const std::wstring& name() const { return name_; }
    void rename(std::wstring name) { name_ = std::move(name); }
    /// The length at the last `close`, or before, and the sums of that.
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
    bool isKnown(unsigned block) const;
    unsigned knownLength(unsigned block) const { return std::min(BLOCK, size_ - block * BLOCK); }
    void sumUp(std::vector<std::byte>& sums) const;

    std::wstring name_;
    unsigned size_;
    const std::byte* sums_;
    std::vector<std::byte> own_;  // the sums, once made here
    LinuxMmFile* file_ = nullptr;
    unsigned unchecked_ = 0;     // up to here there may be blocks to compare
    std::vector<bool> checked_;  // by block, up to there
    std::vector<bool> changed_;  // by block; empty where none was
    bool damaged_ = false;
};

}  // namespace fscanner
