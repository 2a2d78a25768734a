#include "fscanner/store/table_replacement.h"

#include <algorithm>

#include "fscanner/platform/paths.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

namespace {

constexpr const wchar_t* kIndexSuffix = L".idx";

}  // namespace

std::vector<std::wstring> TableReplacement::fileNames(const std::wstring& table,
                                                      const std::vector<std::wstring>& indexes) {
    std::vector<std::wstring> names = {table + FS_Table::kIndexListSuffix};
    for (const std::wstring version : {L"", kSuffix}) {
        for (const wchar_t* suffix : {FS_Table::kDataSuffix, FS_Table::kOffsetSuffix})
            names.push_back(table + version + suffix);
        for (const std::wstring& index : indexes) names.push_back(index + version + kIndexSuffix);
    }
    return names;
}

TableReplacement::TableReplacement(FS_Table& table)
    : table_(table),
      fresh_((table.name_ + kSuffix).c_str(), table.directory_.c_str(), table.compressed_) {
    fresh_.schema_ = table.schema_;
    fresh_.keepSums(table.sums_);
    for (const auto& index : table.indexes_) {
        const std::wstring name = std::wstring(index->getIndexName()) + kSuffix;
        indexes_.emplace_back(name, index->getFieldName());
        renames_.emplace_back(table.directory_ + name + kIndexSuffix,
                              index->getIndexFullPathName());
    }
    for (const wchar_t* suffix : {FS_Table::kDataSuffix, FS_Table::kOffsetSuffix})
        renames_.emplace_back(fresh_.path(suffix), table.path(suffix));
}

/// The old index list file stays, because the new indexes will have the old names.
bool TableReplacement::create() {
    return fresh_.create() &&
           std::all_of(indexes_.begin(), indexes_.end(), [this](const auto& index) {
               return fresh_.buildHashIndex(index.first.c_str(), index.second.c_str());
           });
}

void TableReplacement::abandon() {
    fresh_.close();
    for (const auto& [from, to] : renames_) {
        removeFile(from.c_str());
        if (table_.sums_) table_.sums_->remove(from);
    }
}

bool TableReplacement::takePlaces() {
    table_.closedCounts_.reset();  // they were of the old files
    bool renamed = true;
    for (const auto& [from, to] : renames_)
        renamed = renameFile(from.c_str(), to.c_str()) == 0 && renamed;
    return renamed;
}

// With a journal the order decides what an interruption leaves. Before `noteReplacing`, recovery
// removes the announced new files: the old table stays. After it all of them are complete and on
// disk, and recovery renames them: the new table replaces the old one.
//
// The new sums file is renamed together with the table's files, and the journal announces all of
// them. So a recovery after an interruption finds each table with its own checksums.
bool TableReplacement::rewrite(FS_Table& table, UndoJournal* journal) {
    TableReplacement replacement(table);
    SumsFile* const sums = table.sums_;
    Renames renames = replacement.renames();
    if (sums) renames.push_back(sums->renaming());
    bool ready = (!journal || journal->announce(renames)) && replacement.create() &&
                 replacement.copyRecords();
    ready = replacement.finish() && ready;
    table.close();
    ready = ready && (!sums || sums->writeFor(replacement.renames()));
    if (!ready || (journal && !journal->noteReplacing())) {
        replacement.abandon();
        return false;
    }
    if (!replacement.takePlaces() || (sums && !sums->replace())) {
        if (!journal) table.reportDamage("a compaction that stopped half-way");
        return false;
    }
    return syncDirectory(table.directory_) && (!journal || journal->noteDone());
}

bool TableReplacement::copyRecords() {
    Fields values(table_.schema_);
    unsigned id = 0;
    for (bool more = table_.moveFirst(id); more; more = table_.moveNext(id)) {
        if (!table_.read(id, values) || !fresh_.insert(values)) return false;
    }
    return !table_.damaged();
}

}  // namespace fscanner
