#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fscanner/platform/linuxfile.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

/// An undo journal for files in one directory. It restores them after a change that was
/// interrupted.
///
/// Before files are changed in place, `keep` notes their lengths. From then on each block is
/// written to the journal before its first change. Files that are written beside others and will
/// replace them are announced. After the death of a process, the next user calls `recover`. It
/// undoes changes in place, and it completes a replacement if all its new files were complete.
/// docs/formats/undo-file.md describes the bytes.
///
/// The journal is not synced. It survives the death of the process, because the kernel keeps
/// written pages, but not a crash of the system. So a journal of an earlier boot is not used.
/// Users exclude each other by a lock of their own.
class UndoJournal {
public:
    /// Does not touch any file.
    UndoJournal(std::wstring directory, const std::wstring& name);
    UndoJournal(const UndoJournal&) = delete;
    UndoJournal& operator=(const UndoJournal&) = delete;
    /// Does not remove the file.
    ~UndoJournal();

    /// Creates a new journal. Its first entry says that there is nothing to undo. With `changed`,
    /// files have been changed already: the entry is left out, and the journal cannot be used
    /// before `keep` has noted a state.
    [[nodiscard]] bool start(bool changed);
    bool isStarted() const { return file_ != nullptr; }
    /// The journal's length in bytes; 0 before `start`.
    unsigned size() const { return file_ ? file_->logicalSize() : 0; }
    /// Notes the present state as the one that `recover` restores, instead of an earlier one.
    /// `files` are open; from now on they forbid changes that the journal cannot note.
    /// `smallFiles` are paths; the content of these files is noted as a whole. A small file that
    /// is absent or cannot be read is removed by `recover`. Announced files are forgotten.
    [[nodiscard]] bool keep(const std::vector<LinuxMmFile*>& files,
                            const std::vector<std::wstring>& smallFiles);
    /// Announces new files that will replace others; to be called before the first of them is
    /// created. From now on `recover` removes them.
    [[nodiscard]] bool announce(const Renames& renames);
    /// Notes that the announced files are complete and on disk. From now on `recover` renames
    /// them.
    [[nodiscard]] bool noteReplacing();
    /// Notes that there is nothing to undo or to complete.
    [[nodiscard]] bool noteDone();
    /// Removes the journal. The files passed to `keep` must be closed.
    void remove();

    /// Restores or completes the files by a journal that another process left, and brings them to
    /// disk. After an interruption it can be repeated. False when there is no complete journal of
    /// this boot, and after a failure; then the files must not be trusted.
    [[nodiscard]] bool recover() const;

private:
    class Watch;
    struct Contents;
    using Bytes = std::vector<std::byte>;

    const Bytes& entry(unsigned kind, const Bytes& content);
    bool note(unsigned kind, const Bytes& content);
    std::wstring pathOf(const std::wstring& name) const { return directory_ + name; }
    static bool appendSmall(Bytes& content, const std::wstring& path);
    bool undo(const Contents& journal) const;
    bool finish(const Contents& journal) const;

    std::wstring directory_;  // with a final "/"
    std::wstring path_;
    std::unique_ptr<LinuxMmFile> file_;
    std::vector<std::unique_ptr<Watch>> watches_;
    Bytes entry_;
};

}  // namespace fscanner
