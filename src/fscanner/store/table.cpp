#include "fscanner/store/table.h"

#include <sys/stat.h>

#include <algorithm>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/platform/directory.h"
#include "fscanner/platform/paths.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/platform/sysfactory.h"
#include "fscanner/store/record_cursor.h"
#include "fscanner/store/table_replacement.h"

namespace fscanner {

namespace {

constexpr const wchar_t* kMutexSuffix = L"_t_mutex";

bool isCount(int which) {
    return static_cast<unsigned>(which) <= COUNT_DELETED;
}

}  // namespace

FS_Table::FS_Table(const wchar_t* name, const wchar_t* directory, bool compressed)
    : compressed_(compressed) {
    if (!name || !directory) return;
    const auto real = resolvePath(toMultibyte(directory), [](std::string_view) { return true; });
    if (!real) return;
    name_ = name;
    directory_ = toWide(*real);
    endWithSeparator(directory_);
}

FS_Table::~FS_Table() = default;

// ---- The table --------------------------------------------------------------

bool FS_Table::addField(const wchar_t* name, unsigned typeCode) {
    return isUsable() && !isOpen() && schema_.add(name, typeCode);
}

bool FS_Table::create() {
    if (!isUsable() || isOpen() || schema_.count() > RecordLayout::kMaxFields) return false;
    damaged_ = false;
    auto data = DataFile::create(path(kDataSuffix).c_str(), schema_, sums_);
    if (!data) return false;
    offsets_ = OffsetFile::create(path(kOffsetSuffix).c_str(), sums_);
    if (!offsets_) return false;
    data_ = std::move(data);
    position_ = data_->headerSize();
    layOut();
    eraseHashIndexList(indexes_);
    return true;
}

bool FS_Table::open() {
    if (!isUsable() || isOpen()) return false;
    damaged_ = false;
    closedCounts_.reset();
    schema_.removeAll();
    recordSets_.clear();
    const OpenResult result = openFiles();
    if (result == OpenResult::damaged) reportDamage("its files");
    if (result == OpenResult::ok && retrieveHashIndexList(indexes_)) return true;
    close();
    closedCounts_.reset();  // set by `close`, but the files cannot be opened
    return false;
}

OpenResult FS_Table::openFiles() {
    std::unique_ptr<DataFile> data;
    OpenResult result = DataFile::open(path(kDataSuffix).c_str(), schema_, sums_, data);
    if (result == OpenResult::ok)
        result = OffsetFile::open(path(kOffsetSuffix).c_str(), sums_, offsets_);
    if (result != OpenResult::ok) {
        schema_.removeAll();
        return result;
    }
    data_ = std::move(data);
    position_ = data_->headerSize();
    layOut();
    return result;
}

// Closes all files even if one of them fails.
bool FS_Table::close() {
    if (!isOpen()) return false;
    recordSets_.clear();
    constantKeys_ = false;
    patterns_ = false;
    closedCounts_ = counts();
    bool closed = true;
    for (const auto& index : indexes_) closed = index->close() && closed;
    indexes_.clear();
    indexFields_.clear();
    closed = offsets_->close() && closed;
    closed = data_->close() && closed;
    offsets_.reset();
    data_.reset();
    schema_.removeAll();
    return closed;
}

bool FS_Table::sync() {
    if (!isOpen()) return false;
    bool synced = offsets_->sync();
    synced = data_->sync() && synced;
    for (const auto& index : indexes_) synced = index->sync() && synced;
    return synced;
}

std::vector<LinuxMmFile*> FS_Table::mappedFiles() {
    std::vector<LinuxMmFile*> files{&data_->file(), &offsets_->file()};
    for (const auto& index : indexes_) files.push_back(&index->file());
    return files;
}

bool FS_Table::erase() {
    closedCounts_.reset();
    return isUsable() && !isOpen() && eraseFiles();
}

FS_Table::Counts FS_Table::counts() const {
    return {data_->count(COUNT_STORED), data_->count(COUNT_DELETED)};
}

bool FS_Table::isCompactionDue(int percent) const {
    return isOpen() && isWorthIt(counts(), percent);
}

bool FS_Table::isWorthIt(const Counts& counts, int percent) {
    return counts.deleted > static_cast<long long>(counts.stored) * percent / 100;
}

// If this object closed the table, the counts are known, and a table that needs no compaction is
// not opened again.
bool FS_Table::compact(int percent, UndoJournal* journal) {
    const bool counted =
        !isOpen() && closedCounts_ && !isWorthIt(*closedCounts_, percent) && hasFiles();
    if (!counted && !open()) return false;
    const Counts counts = counted ? *closedCounts_ : this->counts();
    debug("FS_Table::compact - [%d] [stored: %d] [deleted: %d]\n", percent,
          static_cast<int>(counts.stored), static_cast<int>(counts.deleted));
    if (!isWorthIt(counts, percent)) {
        const bool closed = counted || close();
        debug("FS_Table::compact - [%ls] table compact skipped!\n", name_.c_str());
        return closed;
    }
    debug("FS_Table::compact - performing [%ls] table compact...\n", name_.c_str());
    // An index that was not loaded would keep the old ids.
    const bool compacted = hasAllIndexes() && TableReplacement::rewrite(*this, journal);
    close();
    closedCounts_.reset();  // they were of the old files
    return compacted;
}

bool FS_Table::hasFiles() const {
    const auto isThere = [this](const wchar_t* suffix) {
        return presenceOf(path(suffix)) == Presence::there;
    };
    return isThere(kDataSuffix) && isThere(kOffsetSuffix);
}

bool FS_Table::reportDamage(const char* what) {
    if (!damaged_) debug("FS_Table::reportDamage - [%ls] is damaged: %s\n", name_.c_str(), what);
    damaged_ = true;
    return false;
}

// ---- Checks -----------------------------------------------------------------

// These functions check that the files of an open table match each other. Reading a record checks
// only that record; call these before all records are read or the table is changed.

bool FS_Table::checkOffsets() {
    if (!isOpen() || !offsets_->holdsAll()) return false;
    const unsigned entries = offsets_->count();
    const std::byte* entry = offsets_->entries();
    const unsigned stored = data_->count(COUNT_STORED);
    unsigned live = 0, last = headerSize() - 1;
    for (unsigned id = 0; id < entries; ++id, entry += OffsetFile::kEntry) {
        const auto offset = loadInteger<std::uint32_t>(entry);
        if (offset == OffsetFile::kRemoved) continue;
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

// ---- Records ----------------------------------------------------------------

ByteRange FS_Table::record(unsigned id) {
    if (!offsets_ || !offsets_->isLive(id)) return {};
    const ByteRange record = data_->from(offsets_->at(id));
    if (record.empty()) reportDamage("a record's offset");
    return record.empty() || holds(id, record) ? record : ByteRange();
}

// Compares a record with its checksums. The record ends at the latest where the next one starts. If
// the next one was removed, its start is unknown, and the length is computed from the record
// itself, before its bytes are compared. That is safe: the length covers all bytes that it was
// computed from, so damage in them is found.
bool FS_Table::holds(unsigned id, ByteRange record) {
    if (data_->isCompared()) return true;
    const unsigned offset = offsets_->at(id);
    const unsigned next = id + 1 < offsets_->count() ? offsets_->at(id + 1) : data_->end();
    if (next > offset) return data_->holds(offset, next - offset);
    std::size_t length = 0;
    std::vector<StoredValue> values;
    if (!codec_.locate(record, values, length)) return reportDamage("a record");
    return data_->holds(offset, static_cast<unsigned>(length));
}

bool FS_Table::insert(const Fields& values) {
    if (!isOpen()) return false;
    const std::span<const std::byte> record = codec_.encode(values);
    const unsigned offset = data_->end();
    // The record comes before its entry: if the disk is full, there is no id without a record.
    if (record.empty() || !data_->append(record)) return false;
    const unsigned id = offsets_->count();
    if (!offsets_->append(offset)) return false;
    position_ = data_->end();
    return incCount(COUNT_STORED) && hashIndexesUpdate(values, id);
}

bool FS_Table::read(unsigned id, Fields& values) {
    if (!isOpen()) return true;
    const ByteRange bytes = record(id);
    if (bytes.empty()) return false;
    std::size_t length = 0;
    switch (codec_.decode(bytes, values, &length)) {
        case DecodeResult::ok:
            position_ = offsets_->at(id) + length;
            return true;
        case DecodeResult::damaged:
            return reportDamage("a record");
        default:
            return false;
    }
}

StoredRecords FS_Table::storedRecords() {
    if (!holdsAll()) return {};
    return {offsets_->entries(), offsets_->count(), data_->content(), data_->headerSize(),
            data_->end()};
}

bool FS_Table::locate(unsigned id, std::vector<StoredValue>& values) {
    const ByteRange bytes = record(id);
    if (bytes.empty()) return false;
    std::size_t length = 0;
    if (!codec_.locate(bytes, values, length)) return reportDamage("a record");
    position_ = offsets_->at(id) + length;
    return true;
}

bool FS_Table::remove(unsigned id) {
    return isLive(id) && offsets_->markRemoved(id) && decCount(COUNT_STORED) &&
           incCount(COUNT_DELETED);
}

bool FS_Table::update(unsigned id, const Fields& values) {
    if (!isOpen() || !codec_.accepts(values) || !offsets_->isLive(id)) return false;
    return compressed_ ? replace(id, values) : rewriteInPlace(id, values);
}

// Inserts before it removes, so that the old record stays if the disk is full.
bool FS_Table::replace(unsigned id, const Fields& values) {
    return insert(values) && remove(id);
}

// Deliberate: texts are compared by their number of characters, not of bytes. "é" in
// the place of "e" is a byte longer and overwrites the start of the next record. When
// a later text has another number of characters, the fields before it have already
// been rewritten, in the old record, which is then removed.
bool FS_Table::rewriteInPlace(unsigned id, const Fields& values) {
    Fields old(values);
    if (!read(id, old)) return false;
    unsigned at = offsets_->at(id);
    const auto put = [&](std::span<const std::byte> bytes) {
        const bool written = !bytes.empty() && data_->write(at, bytes);
        at += static_cast<unsigned>(bytes.size());
        return written;
    };
    if (!put(codec_.encodeBitmap(values))) return false;
    for (unsigned i = 0; i < codec_.layout().count(); ++i) {
        const auto* text = fieldAs<TextField>(values.at(i));
        const auto* oldText = fieldAs<TextField>(old.at(i));
        if (text && text->view().size() != oldText->view().size()) return replace(id, values);
        if (!put(codec_.encodeValue(*values.at(i)))) return false;
    }
    position_ = at;
    return true;
}

bool FS_Table::moveFirst(unsigned& id) const {
    if (!isOpen()) return false;
    const unsigned first = offsets_->nextLive(0);
    if (first >= offsets_->count()) return false;
    id = first;
    return true;
}

bool FS_Table::moveNext(unsigned& id) const {
    if (!isOpen() || id >= offsets_->count()) return false;
    const unsigned next = offsets_->nextLive(id + 1);
    if (next >= offsets_->count()) return false;
    id = next;
    return true;
}

bool FS_Table::count(int which, int delta) {
    if (!isOpen() || !isCount(which)) return false;
    const auto count = static_cast<RecordCount>(which);
    return data_->setCount(count, data_->count(count) + static_cast<unsigned>(delta));
}

bool FS_Table::count(int which, unsigned* value) const {
    if (!isOpen() || !isCount(which) || !value) return false;
    *value = data_->count(static_cast<RecordCount>(which));
    return true;
}

unsigned long long FS_Table::bytes() const {
    std::vector<std::wstring> files{path(kDataSuffix), path(kOffsetSuffix), path(kIndexListSuffix)};
    for (const auto& index : indexes_) files.emplace_back(index->getIndexFullPathName());
    unsigned long long sum = 0;
    for (const std::wstring& file : files) {
        struct stat info {};
        if (examineFile(toMultibyte(file), info) == 0)
            sum += static_cast<unsigned long long>(info.st_size);
    }
    return sum;
}

// The heads of the indexes have a constant length; the rest grows with the number of records.
unsigned long long FS_Table::bytesInUse() const {
    const unsigned long long all = bytes();
    unsigned stored = 0;
    unsigned deleted = 0;
    if (!count(COUNT_STORED, &stored) || !count(COUNT_DELETED, &deleted)) return all;
    const unsigned long long records = 0ULL + stored + deleted;
    const unsigned long long heads = std::min<unsigned long long>(
        all, indexes_.size() * static_cast<std::size_t>(Index::kHeadBytes));
    return heads + (records == 0 ? 0 : (all - heads) / records * stored);
}

// ---- Record sets ------------------------------------------------------------

RecordSet FS_Table::openRecordSet() {
    recordSets_.push_back(std::make_unique<__recordSet>(*this));
    return RecordSet(recordSets_.back().get());
}

bool FS_Table::closeRecordSet(RecordSet& recordSet) {
    const auto found = std::find_if(
        recordSets_.begin(), recordSets_.end(),
        [&](const auto& candidate) { return candidate.get() == recordSet.recordSet_; });
    if (found == recordSets_.end()) return false;
    recordSets_.erase(found);
    recordSet.recordSet_ = nullptr;
    return true;
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

bool FS_Table::movePrevious(unsigned& id) const {
    if (!isOpen()) return false;
    unsigned candidate = id;
    // For id 0, `id - 1` wraps and is not below `count()`, so the loop does not start.
    for (unsigned entry = id - 1; entry < offsets_->count() && candidate > 0; ++entry) {
        --candidate;
        if (offsets_->at(entry) == OffsetFile::kRemoved) continue;
        id = candidate;
        return true;
    }
    return false;
}

bool FS_Table::moveLast(unsigned& id, unsigned& position) const {
    unsigned last = 0, records = 0;
    for (bool found = moveFirst(last); found; found = moveNext(last)) ++records;
    if (records == 0) return false;
    id = last;
    position = records - 1;
    return false;  // deliberate: a record set's moveLast depends on it
}

bool FS_Table::eof() const {
    return isOpen() && position_ == data_->end();
}

// Created at the first use: most tables are never locked.
AbstractSync* FS_Table::mutex() {
    if (!mutex_ && isUsable()) mutex_ = SysFactory::createMutex((name_ + kMutexSuffix).c_str());
    return mutex_.get();
}

int FS_Table::lock() {
    return mutex() ? mutex()->wait() : SYNC_FAILED;
}

int FS_Table::lock(long timeout) {
    return mutex() ? mutex()->wait(timeout) : SYNC_FAILED;
}

void FS_Table::unlock() {
    if (mutex_) mutex_->release();
}

}  // namespace fscanner
