#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "fscanner/platform/linuxfile.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

/// The checksums of the blocks of one file. Each block is compared with its checksum once after
/// the file was opened, when it is first used.
///
///     0          kBlock                   size           the file's present end
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
    static constexpr unsigned kBlock = 4096;
    /// The length of a stored checksum in bytes: CRC-32C, little-endian.
    static constexpr unsigned kSum = 4;

    static unsigned blocksOf(unsigned size) { return size / kBlock + (size % kBlock != 0); }

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
        return offset >= unchecked_ || holdsBlocks(offset / kBlock, (offset + count - 1) / kBlock);
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
    std::span<const std::byte> sums() const { return {sums_, std::size_t{kSum} * blocksOf(size_)}; }

private:
    bool holdsBlocks(unsigned first, unsigned last) {
        for (unsigned block = first; block <= last; ++block)
            if (block < checked_.size() && !checked_[block] && !check(block)) return false;
        return true;
    }
    bool compareAll();
    bool check(unsigned block);
    void readAhead(long block);
    bool fail(unsigned offset);
    bool isSumCurrent(unsigned block) const;
    unsigned knownLength(unsigned block) const { return std::min(kBlock, size_ - block * kBlock); }
    void sumUp(std::vector<std::byte>& sums) const;

    std::wstring name_;
    unsigned size_;
    const std::byte* sums_;
    std::vector<std::byte> own_;  // the memory of `sums_`, once computed here
    LinuxMmFile* file_ = nullptr;
    unsigned unchecked_ = 0;  // only below this offset may blocks be left to compare
    // In blocks. A walk goes to near blocks in one direction.
    long last_ = 0;              // the one that was compared last
    long edge_ = 0;              // those of the walk up to this one are being read
    long step_ = 1;              // the direction: 1 or -1
    long window_ = 0;            // so many were asked for last; 0 where there is no walk
    std::vector<bool> checked_;  // by block: was compared
    std::vector<bool> changed_;  // by block; empty when no block was changed
    bool damaged_ = false;
};

class ByteRange;

/// The result of opening one of the store's files.
enum class OpenResult {
    ok,
    failed,   ///< the file is absent or cannot be opened
    damaged,  ///< the file was opened, but we cannot have written its content
};

/// The file with the checksums of all blocks of a cache's files. docs/formats/sums-file.md
/// describes the bytes.
///
/// The file is mapped, so only the checksums that are used are read. It is replaced as a whole:
/// `write` creates a new file beside it, and `replace` renames that once all files are on disk. A
/// damaged checksum makes a good block look damaged; it never hides damage.
///
/// Files are identified by the last component of their path. One thread at a time.
class SumsFile {
public:
    explicit SumsFile(std::wstring path) : path_(std::move(path)) {}

    /// Reads the names, lengths and checksums of all files. False, and no file is known, when the
    /// sums file is missing or damaged.
    bool load();
    /// Forgets all files.
    void clear();

    /// The checksums of a file; null if there are none. The object lives until `clear`, `load` or
    /// `remove`, or until another file gets this name by `add` or `rename`. A file must be closed
    /// when it is removed, renamed or replaced here.
    BlockSums* find(const std::wstring& path);
    /// Adds a new, empty file and replaces an earlier one of that name.
    BlockSums& add(const std::wstring& path);
    void rename(const Renames& renames);
    void remove(const std::wstring& path);
    /// Opens a small file, which is always read and written as a whole, and tests whether it
    /// matches its checksums.
    bool holds(const std::wstring& path);
    /// Computes the checksums of such a file. False when it cannot be opened.
    [[nodiscard]] bool takeUp(const std::wstring& path);

    /// Whether one of the files was found damaged.
    bool damaged() const;

    /// Computes new checksums of these open files. Files without checksums are skipped.
    void renew(const std::vector<LinuxMmFile*>& files);
    /// Writes the new sums file. If it returns false, do not call `replace`.
    [[nodiscard]] bool write() const;
    /// Waits until the new sums file is on disk. If it returns false, do not call `replace`.
    [[nodiscard]] bool sync() const;
    /// Renames the files here, then calls `write` and `sync`. For files that are about to be
    /// renamed.
    [[nodiscard]] bool writeFor(const Renames& renames);
    /// Renames the new sums file to the old one.
    [[nodiscard]] bool replace() const;
    /// The renaming that `replace` does.
    Renames::value_type renaming() const { return {newPath(), path_}; }
    /// Removes the sums file, and the new one if there is one.
    void erase() const;
    /// Removes only the new one.
    void eraseNew() const;

    /// All files by name.
    const std::map<std::wstring, std::unique_ptr<BlockSums>>& files() const { return files_; }

private:
    bool decode(ByteRange bytes);
    std::wstring newPath() const { return path_ + L"_new"; }

    std::wstring path_;
    std::unique_ptr<LinuxMmFile> loaded_;
    std::map<std::wstring, std::unique_ptr<BlockSums>> files_;
};

/// One of a table's files, with its checksums if the table keeps any.
class SummedFile {
public:
    SummedFile() = default;

    /// Opens the file at `path`. With null `sums` no checksums are kept. With `sums`, a file that
    /// they do not know, or whose length differs, is `damaged`.
    OpenResult open(const wchar_t* path, SumsFile* sums);
    /// Creates or empties the file.
    bool create(const wchar_t* path, SumsFile* sums);
    /// False when the content did not reach the disk.
    bool close();

    LinuxMmFile* operator->() const { return file_.get(); }
    LinuxMmFile& operator*() const { return *file_; }
    explicit operator bool() const { return file_ != nullptr; }

    /// Whether these bytes of the content match their checksums; `count` is not 0. True without
    /// checksums, as for the two functions below.
    bool holds(unsigned offset, unsigned count) const {
        return !sums_ || sums_->holds(offset, count);
    }
    bool holdsAll() const { return !sums_ || sums_->holdsAll(); }
    /// Whether no block is left to compare.
    bool isCompared() const { return !sums_ || sums_->isCompared(); }

private:
    std::unique_ptr<LinuxMmFile> file_;
    BlockSums* sums_ = nullptr;
};

}  // namespace fscanner
