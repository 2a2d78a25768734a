// Whether the files of an open table fit each other. Reading checks what it meets;
// these look at all entries, for those who are about to read or to change them all.

#include "fscanner/store/table.h"

namespace fscanner {

// Each index has a slot for every record that was ever inserted, and every chain slot
// is named by one other. Sums tell an id or a link that was lost or is there twice.
bool Index::fits(unsigned records) const {
    const unsigned slots = slotCount();
    std::uint64_t ids = 0, links = 0, filled = 0;
    for (unsigned slot = 0; slot < slots; ++slot) {
        unsigned id = NONE, next = NONE;
        if (!read(slot, &id, &next)) return false;
        if (id == NONE && next == NONE && slot < BUCKETS) continue;
        if (id >= records || !isFollower(slot, next)) return false;
        ++filled;
        ids += id;
        if (next != NONE) links += next;
    }
    const auto sumBelow = [](std::uint64_t n) { return n * (n - 1) / 2; };
    return filled == records && ids == sumBelow(records) &&
           links == sumBelow(slots) - sumBelow(BUCKETS);
}

bool FS_Table::checkOffsets() {
    if (!isOpen() || !offsets_->holdsAll()) return false;
    const unsigned entries = offsets_->count();
    const std::byte* entry = offsets_->entries();
    const unsigned stored = data_->count(COUNT_STORED);
    unsigned live = 0, last = headerSize() - 1;
    for (unsigned id = 0; id < entries; ++id, entry += OffsetFile::ENTRY) {
        const auto offset = loadInteger<std::uint32_t>(entry);
        if (offset == OffsetFile::REMOVED) continue;
        if (offset <= last) return reportDamage("the order of its offsets");
        last = offset;
        ++live;
    }
    const bool counted =
        live == stored && entries - live == data_->count(COUNT_DELETED) && last < data_->end();
    return counted || reportDamage("its offsets or counts");
}

bool FS_Table::checkEnds() {
    if (!isOpen()) return false;
    const std::uint64_t records =
        std::uint64_t{data_->count(COUNT_STORED)} + data_->count(COUNT_DELETED);
    if (records != offsets_->count()) return reportDamage("its counts");
    for (const auto& index : indexes_)
        if (!checkIndex(*index)) return false;
    return true;
}

bool FS_Table::checkStructure() {
    if (!checkOffsets()) return false;
    for (const auto& index : indexes_)
        if (!index->fits(offsets_->count())) return reportDamage("an index");
    return true;
}

// ---- Keys -------------------------------------------------------------------

// An index that was made for another field, or for another table, gives itself away
// by any record; the newest stands near the head of its chain.
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

}  // namespace fscanner
