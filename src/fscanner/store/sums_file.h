#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fscanner/platform/small_file.h"
#include "fscanner/store/block_sums.h"

namespace fscanner {

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
