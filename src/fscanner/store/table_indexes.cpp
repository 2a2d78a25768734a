#include <algorithm>
#include <cwchar>
#include <string>
#include <vector>

#include "fscanner/platform/paths.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/platform/sysfactory.h"
#include "fscanner/store/bytes.h"
#include "fscanner/store/table.h"

// The hash indexes of a table: the file that lists them, and the functions of `FS_Table` that
// maintain and walk them.

namespace fscanner {

namespace {

// ---- The index list file ----------------------------------------------------

/// One entry of a table's index list file.
struct IndexListEntry {
    std::wstring indexName;
    std::wstring fieldName;
};

/// The tag of an entry for a hash index; entries with another tag are skipped.
constexpr unsigned kHashIndexTag = 110;

/// Appends the entries of the file to `entries`. An absent or empty file has none.
/// `failed`: the file is there but cannot be opened. `damaged`: the entries before the
/// damage were appended. docs/formats/index-list-file.md describes the bytes.
OpenResult readIndexList(const wchar_t* path, std::vector<IndexListEntry>& entries) {
    const auto file = SysFactory::createMmFile(path);
    if (!file->open())
        return presenceOf(path) == Presence::absent ? OpenResult::ok : OpenResult::failed;
    const std::span<const std::byte> content = file->content();
    ByteRange in(content.data(), content.data() + content.size());
    while (!in.empty()) {
        std::uint32_t tag = 0;
        IndexListEntry entry;
        if (!in.takeInteger(tag) || !takeName(in, entry.indexName) ||
            !takeName(in, entry.fieldName)) {
            return OpenResult::damaged;
        }
        if (tag == kHashIndexTag) entries.push_back(std::move(entry));
    }
    return OpenResult::ok;
}

/// Creates or replaces the file.
bool writeIndexList(const wchar_t* path, const std::vector<IndexListEntry>& entries) {
    std::vector<std::byte> bytes;
    for (const IndexListEntry& entry : entries) {
        appendInteger(bytes, kHashIndexTag);
        appendName(bytes, entry.indexName);
        appendName(bytes, entry.fieldName);
    }
    const auto file = SysFactory::createMmFile(path);
    if (!file->create()) return false;
    const auto length = static_cast<unsigned>(bytes.size());
    if (length != 0 && file->write(bytes.data(), length) != length) return false;
    return file->close();
}

// ---- The list ---------------------------------------------------------------

/// The first index in the list that `matches`. With `detach` it is removed from the list.
template <typename Matches>
std::shared_ptr<Index> search(IndexList& list, bool detach, Matches matches) {
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const auto& index) { return matches(*index); });
    if (found == list.end()) return nullptr;
    std::shared_ptr<Index> index = *found;
    if (detach) list.erase(found);
    return index;
}

/// An index's name becomes part of a file name, so it must not lead to another directory.
bool isFileName(const std::wstring& name) {
    return !name.empty() && name.find(L'/') == name.npos;
}

}  // namespace

std::shared_ptr<Index> FS_Table::searchHashIndexForFieldName(const wchar_t* fieldName,
                                                             bool detach) {
    if (!fieldName) return nullptr;
    return search(indexes_, detach, [&](const Index& index) {
        return std::wcscmp(index.getFieldName(), fieldName) == 0;
    });
}

std::shared_ptr<Index> FS_Table::searchHashIndexForIndexName(const wchar_t* indexName,
                                                             bool detach) {
    if (!indexName) return nullptr;
    return search(indexes_, detach, [&](const Index& index) {
        return std::wcscmp(index.getIndexName(), indexName) == 0;
    });
}

bool FS_Table::addHashIndex(const wchar_t* indexName, const wchar_t* fieldName) {
    if (!isOpen() || !indexName || !fieldName) return false;
    if (searchHashIndexForIndexName(indexName, false)) return false;
    buildHashIndex(indexName, fieldName);
    saveHashIndexList(indexes_);
    return true;  // deliberate, also for an unknown field or a full disk
}

bool FS_Table::retrieveHashIndexList(IndexList& list) {
    if (!isUsable()) return false;
    std::vector<IndexListEntry> entries;
    OpenResult result = readIndexList(path(kIndexListSuffix).c_str(), entries);
    for (const IndexListEntry& entry : entries) {
        if (result == OpenResult::damaged) break;
        result = loadIndex(entry.indexName, entry.fieldName, list);
    }
    return result != OpenResult::damaged || reportDamage("its indexes or their list");
}

/// Whether every index in the list file is loaded (see `loadIndex`).
bool FS_Table::hasAllIndexes() const {
    std::vector<IndexListEntry> entries;
    return readIndexList(path(kIndexListSuffix).c_str(), entries) == OpenResult::ok &&
           entries.size() == indexes_.size();
}

/// An index whose file cannot be opened is left out without an error: the table works without
/// it, only slower.
OpenResult FS_Table::loadIndex(const std::wstring& indexName, const std::wstring& fieldName,
                               IndexList& list) const {
    const bool known = !isOpen() || schema_.name(fieldName.c_str());
    const auto sameName = [&](const auto& other) { return other->getIndexName() == indexName; };
    if (!known || !isFileName(indexName) || std::any_of(list.begin(), list.end(), sameName)) {
        return OpenResult::damaged;
    }
    auto index = std::make_shared<Index>(indexName.c_str(), directory_.c_str(), fieldName.c_str());
    if (!index->open(sums_)) return index->isDamaged() ? OpenResult::damaged : OpenResult::failed;
    list.push_back(std::move(index));
    return OpenResult::ok;
}

bool FS_Table::saveHashIndexList(const IndexList& list) const {
    if (!isUsable()) return false;
    std::vector<IndexListEntry> entries;
    for (const auto& index : list) {
        entries.push_back({index->getIndexName(), index->getFieldName()});
    }
    return writeIndexList(path(kIndexListSuffix).c_str(), entries);
}

bool FS_Table::eraseHashIndexList(const IndexList& /*list*/) const {
    return isUsable() && removeFile(path(kIndexListSuffix).c_str()) == 0;
}

bool FS_Table::eraseFiles() {
    std::vector<IndexListEntry> entries;
    readIndexList(path(kIndexListSuffix).c_str(), entries);
    std::vector<std::wstring> files{path(kDataSuffix), path(kOffsetSuffix)};
    for (const IndexListEntry& entry : entries) {
        if (!isFileName(entry.indexName)) continue;
        const Index index(entry.indexName.c_str(), directory_.c_str(), entry.fieldName.c_str());
        files.emplace_back(index.getIndexFullPathName());
    }
    eraseHashIndexList(indexes_);
    for (const std::wstring& file : files) {
        removeFile(file.c_str());
        if (sums_) sums_->remove(file);
    }
    return true;
}

// ---- Upkeep -----------------------------------------------------------------

bool FS_Table::buildHashIndex(const wchar_t* indexName, const wchar_t* fieldName) {
    if (!isOpen() || !indexName || !fieldName || !isFileName(indexName)) return false;
    // Creating the file again would truncate it under the mapping of the existing index.
    if (searchHashIndexForIndexName(indexName, false)) return false;
    const Field* field = schema_.name(fieldName);
    if (!field) return false;
    unsigned position = 0;
    while (schema_.at(position) != field) ++position;
    auto index = std::make_shared<Index>(indexName, directory_.c_str(), fieldName);
    if (!index->create(sums_)) return false;
    if (!fillIndex(*index, position)) {
        index->close();
        index->erase();
        return false;
    }
    indexes_.push_back(std::move(index));
    indexFields_.clear();
    return true;
}

/// Enters every record. Deliberate, and unlike `insert`: records whose value is null are
/// entered too, because decoding ignores the null flags.
bool FS_Table::fillIndex(Index& index, unsigned field) {
    Fields values(schema_);
    std::vector<bool> wanted(field + 1);
    wanted[field] = true;
    unsigned id = 0;
    for (bool more = moveFirst(id); more; more = moveNext(id)) {
        const ByteRange bytes = record(id);
        if (bytes.empty()) return false;
        if (codec_.decodeSome(bytes, values, wanted) != DecodeResult::ok) {
            return reportDamage("a record");
        }
        const std::optional<unsigned> bucket = indexBucket(*values.at(field));
        if (!bucket || !index.write(*bucket, id)) return false;
    }
    return true;
}

/// Looks the indexed fields up by name, once for many inserts from the same list of values.
void FS_Table::bindIndexes(const Fields& values) {
    const bool bound = indexFields_.size() == indexes_.size() && values.revision() != 0 &&
                       boundRevision_ == values.revision() && boundRenames_ == Field::renames();
    if (bound) return;
    indexFields_.clear();
    for (const auto& index : indexes_) {
        indexFields_.push_back(values.name(index->getFieldName()));
    }
    boundRevision_ = values.revision();
    boundRenames_ = Field::renames();
}

bool FS_Table::hashIndexesUpdate(const Fields& values, unsigned recordId) {
    bindIndexes(values);
    for (std::size_t i = 0; i < indexes_.size(); ++i) {
        const Field* field = indexFields_[i];
        if (!field) return false;
        if (field->isNull()) continue;
        const std::optional<unsigned> bucket = indexBucket(*field);
        if (!bucket) return false;
        // Do not add records to a damaged chain.
        if (!indexes_[i]->isSoundHead(*bucket, offsets_->count())) return reportDamage("a chain");
        if (!indexes_[i]->write(*bucket, recordId)) return false;
    }
    return true;
}

// ---- Walks ------------------------------------------------------------------

bool FS_Table::hashIndex_moveFirst(const Index& index, const wchar_t* key, unsigned& recordId,
                                   unsigned& next) {
    if (!isOpen() || !index.isOpen() || !key) return false;
    const unsigned bucket = indexBucket(key);
    switch (visitSlot(index, bucket, recordId, next)) {
        case Visit::live:
            return true;
        case Visit::removed:
            return hashIndex_moveNext(index, recordId, next);
        default:
            return false;
    }
}

bool FS_Table::hashIndex_moveNext(const Index& index, unsigned& recordId, unsigned& next) {
    if (!isOpen() || !index.isOpen()) return false;
    while (next != Index::kNone) {
        if (next < Index::kBuckets || next >= index.slotCount()) return reportDamage("a chain");
        const Visit visit = visitSlot(index, next, recordId, next);
        if (visit != Visit::removed) return visit == Visit::live;
    }
    return false;
}

/// Reads a slot and tells whether its record is live. Only a head may be empty.
FS_Table::Visit FS_Table::visitSlot(const Index& index, unsigned slot, unsigned& recordId,
                                    unsigned& next) {
    unsigned follower = Index::kNone;
    if (!index.read(slot, &recordId, &follower)) return Visit::damaged;
    const bool empty = recordId == Index::kNone && slot < Index::kBuckets;
    next = follower;
    if (empty && follower == Index::kNone) return Visit::removed;
    if (recordId >= offsets_->count() || !index.isFollower(slot, follower)) {
        reportDamage("a chain");
        return Visit::damaged;
    }
    return offsets_->isLive(recordId) ? Visit::live : Visit::removed;
}

// ---- Keys -------------------------------------------------------------------

// An index that belongs to another field or another table hardly ever has a record of this table in
// the right chain. So testing one record is enough. The newest is near the head of its chain, which
// makes the test cheap.
bool FS_Table::checkIndex(Index& index) {
    if (!constantKeys_ || index.tested()) return true;
    unsigned newest = offsets_->count();
    while (newest > 0 && !offsets_->isLive(newest - 1)) --newest;
    if (newest-- == 0) return true;
    std::wstring key;
    if (!readKey(index, newest, key)) return false;
    unsigned id = 0, next = 0;
    bool more = hashIndex_moveFirst(index, key.c_str(), id, next);
    while (more && id != newest) more = hashIndex_moveNext(index, id, next);
    index.tested() = more;
    return more || reportDamage("an index that lacks the newest record");
}

bool FS_Table::belongs(const Index& index, unsigned id, const std::wstring& key) {
    std::wstring own;
    if (!constantKeys_) return true;
    if (!readKey(index, id, own)) return false;
    return indexBucket(own.c_str()) == indexBucket(key.c_str()) ||
           reportDamage("a record in another's chain");
}

bool FS_Table::readKey(const Index& index, unsigned id, std::wstring& key) {
    Fields values(schema_);
    const Field* field = values.name(index.getFieldName());
    if (!field) return reportDamage("an index on no field");
    std::vector<bool> wanted;
    do wanted.push_back(values.at(static_cast<unsigned>(wanted.size())) == field);
    while (!wanted.back());
    const ByteRange bytes = record(id);
    if (bytes.empty()) return false;
    if (codec_.decodeSome(bytes, values, wanted) != DecodeResult::ok)
        return reportDamage("a record");
    return makeIndexKey(*field, key);
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

bool FS_Table::removeHashIndex(const wchar_t* indexName) {
    const auto index = searchHashIndexForIndexName(indexName, true);
    if (!index) return false;
    index->close();
    index->erase();
    saveHashIndexList(indexes_);
    return false;  // deliberate
}

}  // namespace fscanner
