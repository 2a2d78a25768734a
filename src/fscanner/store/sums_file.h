#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fscanner/platform/small_file.h"
#include "fscanner/store/block_sums.h"

namespace fscanner {

class ByteRange;

/// How the opening of one of the store's files went.
enum class OpenResult {
    ok,
    failed,   ///< absent, or not to be opened
    damaged,  ///< opened, and its content cannot be what we wrote
};

/// The file that holds the checksums of all blocks of a cache's files.
/// docs/formats/sums-file.md has the bytes.
///
/// It is read through a mapping, and only where it is asked, and replaced whole: `write` makes
/// the new one beside it, and `replace` puts that in its place once all files are on disk. A
/// sum that is damaged itself makes a sound block a damaged one; it never hides damage.
///
/// Files are known by the last part of their path. One thread at a time.
class SumsFile {
public:
    explicit SumsFile(std::wstring path) : path_(std::move(path)) {}

    /// Takes the names, lengths and sums from the file. False, and no file is known, where it
    /// is missing, too short, or damaged.
    bool load();
    /// Forgets all files.
    void clear();

    /// The sums of a file; null where none are known. They stay until `clear`, `load`,
    /// `remove`, or until another gets its name. What is removed or renamed must be closed.
    BlockSums* find(const std::wstring& path);
    /// For a file that is made anew.
    BlockSums& add(const std::wstring& path);
    void rename(const Renames& renames);
    void remove(const std::wstring& path);
    /// The same of a file that is read and written whole: whether it is as it was; its sums
    /// from now on. False where it cannot be opened.
    bool holds(const std::wstring& path);
    [[nodiscard]] bool takeUp(const std::wstring& path);

    /// Whether any file was found to be other than it was. True until `clear` or `load`.
    bool damaged() const;

    /// Of these files, which are open: sums of what they hold now.
    void renew(const std::vector<LinuxMmFile*>& files);
    /// Writes the new one, and waits until it is on disk. False: `replace` must not follow.
    [[nodiscard]] bool write() const;
    [[nodiscard]] bool sync() const;
    /// Both, for files that are about to take the places of others.
    [[nodiscard]] bool writeFor(const Renames& renames);
    [[nodiscard]] bool replace() const;
    /// What `replace` does.
    Renames::value_type renaming() const { return {newPath(), path_}; }
    /// Removes the file, and a new one that was never put in its place.
    void erase() const;
    /// Removes that new one alone.
    void eraseNew() const;

    /// By name.
    const std::map<std::wstring, std::unique_ptr<BlockSums>>& files() const { return files_; }

private:
    bool decode(ByteRange bytes);
    std::wstring newPath() const { return path_ + L"_new"; }

    std::wstring path_;
    std::unique_ptr<LinuxMmFile> loaded_;
    std::map<std::wstring, std::unique_ptr<BlockSums>> files_;
};

/// One of a table's files, with its checksums where a cache keeps them.
class SummedFile {
public:
    SummedFile() = default;

    /// Opens the file at `path`. Without `sums` none are kept.
    OpenResult open(const wchar_t* path, SumsFile* sums);
    /// Makes it anew, or empties it.
    bool create(const wchar_t* path, SumsFile* sums);
    /// False when its content did not reach the disk.
    bool close();

    LinuxMmFile* operator->() const { return file_.get(); }
    LinuxMmFile& operator*() const { return *file_; }
    explicit operator bool() const { return file_ != nullptr; }

    /// Whether these bytes of the content are as they were written; `count` is not 0.
    bool holds(unsigned offset, unsigned count) const {
        return !sums_ || sums_->holds(offset, count);
    }
    bool holdsAll() const { return !sums_ || sums_->holdsAll(); }
    /// Whether nothing is left to compare.
    bool isCompared() const { return !sums_ || sums_->isCompared(); }

private:
    std::unique_ptr<LinuxMmFile> file_;
    BlockSums* sums_ = nullptr;
};

}  // namespace fscanner
