#pragma once

#include "fscanner/store/table.h"

namespace fscanner {

/// A second table, NAME_cpt with indexes INDEX_cpt, that is to take the place of a first. Until
/// then the files of the first are as they were.
class TableReplacement {
public:
    /// Behind the names of the table and its indexes.
    static constexpr const wchar_t* SUFFIX = L"_cpt";

    /// Of an open table, which must outlive this.
    explicit TableReplacement(FS_Table& table);

    /// Makes the new table, empty, with the schema and indexes of the first. It is open then.
    [[nodiscard]] bool create();
    FS_Table& fresh() { return fresh_; }
    /// What `takePlaces` is going to do.
    const Renames& renames() const { return renames_; }
    /// Brings the new files to disk and closes them.
    [[nodiscard]] bool finish() { return fresh_.close(); }
    /// Closes and removes them.
    void abandon();
    /// Renames the new files of two closed tables, one after the other. False where one could
    /// not be renamed: there may be files of both then.
    [[nodiscard]] bool takePlaces();

    /// All of that at once: replaces an open table by one of its live records, and closes it.
    /// `FS_Table::compact` tells what a journal is for, and what a failure leaves.
    [[nodiscard]] static bool rewrite(FS_Table& table, UndoJournal* journal);

private:
    bool copyRecords();

    FS_Table& table_;
    FS_Table fresh_;
    std::vector<std::pair<std::wstring, std::wstring>> indexes_;  // name and field
    Renames renames_;
};

}  // namespace fscanner
