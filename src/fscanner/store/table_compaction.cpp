// Rewriting a table without its removed records.

#include <utility>

#include "fscanner/common/paths.h"
#include "fscanner/fs/debug.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/store/table.h"

namespace fscanner {

namespace {

constexpr const wchar_t* FRESH_SUFFIX = L"_cpt";

}  // namespace

/// A second table, NAME_cpt with indexes INDEX_cpt, takes the live records. Once
/// all of it is on disk its files take the old ones' places, one rename each. A
/// failure before that leaves the old files as they were.
class FS_Table::Compaction {
public:
    explicit Compaction(FS_Table& table)
        : table_(table),
          fresh_((table.name_ + FRESH_SUFFIX).c_str(), table.directory_.c_str(),
                 table.compressed_) {}

    bool run() {
        const bool copied = prepare() && copyRecords();
        planRenames();
        if (!fresh_.close() || !copied) {
            fresh_.erase();
            return false;
        }
        table_.close();
        fresh_.eraseHashIndexList({});
        return takePlaces();
    }

private:
    bool prepare() {
        fresh_.schema_ = table_.schema_;
        fresh_.keepSums(table_.sums_);
        if (!fresh_.create()) return false;
        for (const auto& index : table_.indexes_) {
            const std::wstring name = std::wstring(index->getIndexName()) + FRESH_SUFFIX;
            fresh_.addHashIndex(name.c_str(), index->getFieldName());
            // That was true even if the index could not be built.
            if (!fresh_.searchHashIndexForIndexName(name.c_str(), false)) return false;
        }
        return true;
    }

    bool copyRecords() {
        Fields values(table_.schema_);
        unsigned id = 0;
        for (bool more = table_.moveFirst(id); more; more = table_.moveNext(id)) {
            if (!table_.read(id, values) || !fresh_.insert(values)) return false;
        }
        return !table_.damaged();
    }

    void planRenames() {
        for (std::size_t i = 0; i < fresh_.indexes_.size(); ++i) {
            renames_.emplace_back(fresh_.indexes_[i]->getIndexFullPathName(),
                                  table_.indexes_[i]->getIndexFullPathName());
        }
        for (const wchar_t* suffix : {DATA_SUFFIX, OFFSET_SUFFIX}) {
            renames_.emplace_back(fresh_.path(suffix), table_.path(suffix));
        }
    }

    /// The list of the old indexes stays: it names the files that are there now.
    bool takePlaces() {
        bool renamed = true;
        for (const auto& [from, to] : renames_) {
            renamed = renameFile(from.c_str(), to.c_str()) == 0 && renamed;
            if (table_.sums_) table_.sums_->rename(from, to);
        }
        if (!renamed) return table_.reportDamage("a compaction that stopped half-way");
        return syncDirectory(table_.directory_);
    }

    FS_Table& table_;
    FS_Table fresh_;
    std::vector<std::pair<std::wstring, std::wstring>> renames_;
};

bool FS_Table::isWorthIt(const Counts& counts, int percent) {
    return counts.deleted > static_cast<long long>(counts.stored) * percent / 100;
}

// A table that this object has just closed is not opened only to find nothing to do.
bool FS_Table::compact(int percent) {
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
    const bool compacted = hasAllIndexes() && Compaction(*this).run();
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
