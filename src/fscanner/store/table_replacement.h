#pragma once

#include "fscanner/store/table.h"

namespace fscanner {

/// A new table NAME_cpt, with indexes INDEX_cpt, that is going to replace the table NAME. Until
/// then the files of the old table do not change.
class TableReplacement {
public:
    /// Appended to the names of the table and its indexes.
    static constexpr const wchar_t* kSuffix = L"_cpt";

    /// The names of the files that a table with indexes of these names can have, and of those
    /// that are to take their places.
    static std::vector<std::wstring> fileNames(const std::wstring& table,
                                               const std::vector<std::wstring>& indexes);

    /// `table` is open and must outlive this object.
    explicit TableReplacement(FS_Table& table);

    /// Creates and opens the new table. It is empty and has the schema and indexes of the old one.
    [[nodiscard]] bool create();
    /// The new table.
    FS_Table& fresh() { return fresh_; }
    /// The renamings that `takePlaces` is going to do.
    const Renames& renames() const { return renames_; }
    /// Brings the new files to disk and closes them.
    [[nodiscard]] bool finish() { return fresh_.close(); }
    /// Closes and removes the new files.
    void abandon();
    /// Renames the new files to the old ones, one after the other. Both tables are closed. False
    /// when a file could not be renamed; then there may be a mixture of both tables.
    [[nodiscard]] bool takePlaces();

    /// Does all of the above: replaces an open table by one that holds only its live records, and
    /// closes it. `FS_Table::compact` describes the journal and the state after a failure.
    [[nodiscard]] static bool rewrite(FS_Table& table, UndoJournal* journal);

private:
    bool copyRecords();

    FS_Table& table_;
    FS_Table fresh_;
    std::vector<std::pair<std::wstring, std::wstring>> indexes_;  // name and field
    Renames renames_;
};

}  // namespace fscanner
