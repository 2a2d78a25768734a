// Tables that take the places of others, and a compaction by one.

#include <algorithm>

#include "fscanner/common/paths.h"
#include "fscanner/fs/debug.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/store/table_replacement.h"

namespace fscanner {

namespace {

constexpr const wchar_t* INDEX_SUFFIX = L".idx";

}  // namespace

TableReplacement::TableReplacement(FS_Table& table)
    : table_(table),
      fresh_((table.name_ + SUFFIX).c_str(), table.directory_.c_str(), table.compressed_) {
    fresh_.schema_ = table.schema_;
    fresh_.keepSums(table.sums_);
    for (const auto& index : table.indexes_) {
        const std::wstring name = std::wstring(index->getIndexName()) + SUFFIX;
        indexes_.emplace_back(name, index->getFieldName());
        renames_.emplace_back(table.directory_ + name + INDEX_SUFFIX,
                              index->getIndexFullPathName());
    }
    for (const wchar_t* suffix : {FS_Table::DATA_SUFFIX, FS_Table::OFFSET_SUFFIX})
        renames_.emplace_back(fresh_.path(suffix), table.path(suffix));
}

/// The list of the old indexes stays: it names the files that will be there.
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
    table_.closedCounts_.reset();  // the files are others
    bool renamed = true;
    for (const auto& [from, to] : renames_)
        renamed = renameFile(from.c_str(), to.c_str()) == 0 && renamed;
    return renamed;
}

/// A replacement takes the live records. The checksums go with it, so that at no time a table
/// lies beside those of the other.
bool FS_Table::rewrite(UndoJournal* journal) {
    TableReplacement replacement(*this);
    Renames renames = replacement.renames();
    if (sums_) renames.push_back(sums_->renaming());
    bool ready = (!journal || journal->announce(renames)) && replacement.create() &&
                 copyRecords(replacement.fresh());
    ready = replacement.finish() && ready;
    close();
    ready = ready && (!sums_ || sums_->writeFor(replacement.renames()));
    if (!ready || (journal && !journal->noteReplacing())) {
        replacement.abandon();
        return false;
    }
    if (!replacement.takePlaces() || (sums_ && !sums_->replace())) {
        if (!journal) reportDamage("a compaction that stopped half-way");
        return false;
    }
    return syncDirectory(directory_) && (!journal || journal->noteDone());
}

bool FS_Table::copyRecords(FS_Table& fresh) {
    Fields values(schema_);
    unsigned id = 0;
    for (bool more = moveFirst(id); more; more = moveNext(id)) {
        if (!read(id, values) || !fresh.insert(values)) return false;
    }
    return !damaged();
}

bool FS_Table::isWorthIt(const Counts& counts, int percent) {
    return counts.deleted > static_cast<long long>(counts.stored) * percent / 100;
}

// A table that this object has just closed is not opened only to find nothing to do.
bool FS_Table::compact(int percent, UndoJournal* journal) {
    const bool counted =
        !isOpen() && closedCounts_ && !isWorthIt(*closedCounts_, percent) && hasFiles();
    if (!counted && !open()) return false;
    const Counts counts =
        counted ? *closedCounts_ : Counts{data_->count(COUNT_STORED), data_->count(COUNT_DELETED)};
    debug("FS_Table::compact - [%d] [stored: %d] [deleted: %d]\n", percent,
          static_cast<int>(counts.stored), static_cast<int>(counts.deleted));
    if (!isWorthIt(counts, percent)) {
        const bool closed = counted || close();
        debug("FS_Table::compact - [%ls] table compact skipped!\n", name_.c_str());
        return closed;
    }
    debug("FS_Table::compact - performing [%ls] table compact...\n", name_.c_str());
    // An index that was left out would go on with the old ids.
    const bool compacted = hasAllIndexes() && rewrite(journal);
    close();
    closedCounts_.reset();  // the files are others
    return compacted;
}

bool FS_Table::hasFiles() const {
    const auto isThere = [this](const wchar_t* suffix) {
        return presenceOf(path(suffix)) == Presence::there;
    };
    return isThere(DATA_SUFFIX) && isThere(OFFSET_SUFFIX);
}

}  // namespace fscanner
