#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "fscanner/platform/linuxfile.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

/// The way back from a change of files that was interrupted. All lie in one directory.
///
/// Before files are changed in place, `keep` notes their lengths; from then on the journal
/// gets each block of them before its first change. Files that are made beside others, to
/// take their places, are announced. Whoever comes after the death of a process calls
/// `recover`, which undoes what was not finished, and finishes what was. The bytes are
/// those of docs/formats/undo-file.md.
///
/// What was noted survives the process and not the system: nothing is synced, and a journal
/// of another boot is of no use. Users exclude each other by a lock of their own.
class UndoJournal {
public:
    /// Touches no file.
    UndoJournal(std::wstring directory, const std::wstring& name);
    UndoJournal(const UndoJournal&) = delete;
    UndoJournal& operator=(const UndoJournal&) = delete;
    /// Leaves the file.
    ~UndoJournal();

    /// Makes a new file. It says that nothing was changed yet, or, when that is not so, tells
    /// nothing before `keep`.
    [[nodiscard]] bool start(bool changed);
    bool isStarted() const { return file_ != nullptr; }
    /// Its length in bytes; 0 before `start`.
    unsigned size() const { return file_ ? file_->logicalSize() : 0; }
    /// Notes the present state as the one to go back to, in the place of an earlier one. The
    /// files are open and at their ends; they refuse changes that cannot be noted. The small
    /// ones, given by path, are noted whole; one that cannot be read is removed by `recover`. What
    /// was announced is forgotten.
    [[nodiscard]] bool keep(const std::vector<LinuxMmFile*>& files,
                            const std::vector<std::wstring>& smallFiles);
    /// To be called before the first of the files is made that will take others' places.
    /// They are removed if it ends here.
    [[nodiscard]] bool announce(const Renames& renames);
    /// They are complete, and on disk. If it ends here they take their places.
    [[nodiscard]] bool noteReplacing();
    /// Nothing is to be undone or finished.
    [[nodiscard]] bool noteDone();
    /// Forgets all, and removes the file. The files that were kept must be closed.
    void remove();

    /// Makes the files what they are to be by a journal that another process left, and
    /// brings them to disk. May be interrupted and repeated. False where there is no whole
    /// journal of this boot, and when it fails: the files are not to be trusted then.
    [[nodiscard]] bool recover() const;

private:
    class Watch;
    struct Story;
    using Bytes = std::vector<std::byte>;

    const Bytes& entry(unsigned kind, const Bytes& content);
    bool note(unsigned kind, const Bytes& content);
    std::wstring place(const std::wstring& name) const { return directory_ + name; }
    static void appendSmall(Bytes& content, const std::wstring& path);
    bool undo(const Story& story) const;
    bool finish(const Story& story) const;

    std::wstring directory_;  // with a final "/"
    std::wstring path_;
    std::unique_ptr<LinuxMmFile> file_;
    std::vector<std::unique_ptr<Watch>> watches_;
    Bytes entry_;
};

}  // namespace fscanner
