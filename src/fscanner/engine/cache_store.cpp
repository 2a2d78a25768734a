#include "fscanner/engine/cache_store.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cwchar>

#include "fscanner/common/paths.h"
#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_check.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/platform/sysfactory.h"

namespace fscanner {

const wchar_t* CacheUpdateSuffix = L".cuflag";
const wchar_t* CacheCounterSuffix = L".counter";
const wchar_t* CacheUnreadSuffix = L".unread";
const wchar_t* CacheSumsSuffix = L".sums";
const wchar_t* field_ID = L"ID";

namespace {

// 95 % of the range: beyond it a cache is made anew rather than run out of IDs.
constexpr unsigned kLargestDirectoriesIndex = 0xF3333333;
constexpr int kCompactionPercent = 30;

struct SchemaField {
    const wchar_t* name;
    unsigned type;
};

bool isField(const Field& field, const SchemaField& expected) {
    return field.type() == expected.type && std::wcscmp(field.name(), expected.name) == 0;
}

std::array<unsigned char, 4> littleEndian(unsigned value) {
    std::array<unsigned char, 4> bytes{};
    for (unsigned i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(value >> (8 * i));
    return bytes;
}

// Waits for the lock until `limit` milliseconds are over: in pieces, so that an observer
// hears of it and may end it. The first is short: a user is told at once.
int waitFor(DirectoryLock& lock, long limit, DirectoryLock::Mode mode) {
    const unsigned start = getTickCount();
    long piece = 1;
    FsScanObserver* const observer = scanObserver();
    for (;;) {
        const unsigned waited = getTickCount() - start;
        const long left = std::max(limit - static_cast<long>(waited), 0L);
        const bool last = !observer || left <= piece;
        const int status = lock.wait(last ? left : piece, mode);
        if (status != SYNC_TIMED_OUT || last) return status;
        if (!observer->waiting(getTickCount() - start)) return SYNC_TIMED_OUT;
        piece = 200;
    }
}

unsigned fromLittleEndian(const std::array<unsigned char, 4>& bytes) {
    unsigned value = 0;
    for (unsigned i = 0; i < bytes.size(); ++i) value |= unsigned{bytes[i]} << (8 * i);
    return value;
}

bool isDue(const FS_Table& table, int percent) {
    unsigned stored = 0;
    unsigned deleted = 0;
    return table.count(0, &stored) && table.count(1, &deleted) &&
           deleted > std::uint64_t{stored} * static_cast<unsigned>(percent) / 100;
}

}  // namespace

// The fields of a table, and those of them that have an index, in the order of making.
struct CacheStore::TableKind {
    std::array<SchemaField, 4> fields;
    std::vector<const wchar_t*> indexed;

    bool addTo(FS_Table& table) const {
        return std::all_of(fields.begin(), fields.end(), [&table](const SchemaField& field) {
            return table.addField(field.name, field.type);
        });
    }
    void addIndexes(FS_Table& table, const std::wstring& name) const {
        for (const wchar_t* field : indexed)
            table.addHashIndex((name + L"_" + field).c_str(), field);
    }
    // A table of another schema, which a stranger or a damaged header left, is no table
    // of this cache; one that lost an index would be searched in vain.
    bool fits(FS_Table& table) const {
        const Fields& schema = table.schema();
        if (schema.count() != fields.size()) return false;
        for (unsigned i = 0; i < fields.size(); ++i)
            if (!isField(*schema.at(i), fields[i])) return false;
        return std::all_of(indexed.begin(), indexed.end(), [&table](const wchar_t* field) {
            return table.searchHashIndexForFieldName(field, false) != nullptr;
        });
    }

    static const TableKind& files() {
        static const TableKind kind{
            {{{L"FILENAME", 5}, {L"ATTR", 3}, {L"SIZE", 4}, {L"PATHID", 3}}},
            {L"FILENAME", L"PATHID"}};
        return kind;
    }
    static const TableKind& directories() {
        static const TableKind kind{
            {{{field_ID, 3}, {L"PATHNAME", 5}, {L"PARENTID", 3}, {L"CREATIONTIME", 3}}},
            {L"PATHNAME", field_ID, L"PARENTID"}};
        return kind;
    }
};

bool isIndexedFileField(std::wstring_view name) {
    const auto& indexed = CacheStore::TableKind::files().indexed;
    return std::find(indexed.begin(), indexed.end(), name) != indexed.end();
}

wchar_t* getCacheFileName(const wchar_t* directory, const wchar_t* name, const wchar_t* suffix) {
    if (!directory || !name || !suffix) return nullptr;
    return getFullPathName(directory, (std::wstring(name) + suffix).c_str());
}

std::wstring accessMutexName(const std::wstring& directory) {
    std::wstring name = directory + L"_c_mutex";
    std::replace(name.begin(), name.end(), L'/', L'_');
    std::replace(name.begin(), name.end(), L':', L'_');
    return name;
}

CacheStore::CacheStore(const wchar_t* directoriesTableName, const wchar_t* filesTableName,
                       const wchar_t* cacheDirectory, bool compressed, bool cacheChecker)
    : compressed_(compressed), cacheChecker_(cacheChecker) {
    if (!directoriesTableName || !filesTableName || !cacheDirectory) return;
    directoriesName_ = directoriesTableName;
    filesName_ = filesTableName;
    const auto realDirectory = PathHelper::realPath(cacheDirectory, true);
    if (!realDirectory) {
        debug("FS_Cache::FS_Cache - cachePathName name is NULL, pathHelper.realPath() failed!\n");
        return;
    }
    directory_ = *realDirectory;
    sums_ = std::make_unique<SumsFile>(path(CacheSumsSuffix));
    const std::wstring mutexName = accessMutexName(directory_);
    debug("FS_Cache::FS_Cache - accessMutex name is '%ls'\n", mutexName.c_str());
    directoryLock_ = std::make_unique<DirectoryLock>(directory_);
    if (!lookups_.valid()) {
        debug("FS_Cache::FS_Cache - criteriaEvaluator creation error!\n");
        return;
    }
    initialized_ = true;
}

CacheStore::~CacheStore() = default;

std::wstring CacheStore::pathOf(const std::wstring& table, const wchar_t* suffix) const {
    return directory_ + (directory_.ends_with(L'/') ? L"" : L"/") + table + suffix;
}

// ---- Locking ----------------------------------------------------------------

// The lock in the directory decides. The access mutex, which cannot be shared, lies where
// others can take its name or keep it from being made: who has the cache alone takes it
// when that is possible at once.
int CacheStore::lock() {
    debug("FS_Cache::lock - waiting for accessMutex...\n");
    return lockWithin(std::nullopt, DirectoryLock::Mode::exclusive);
}

int CacheStore::lock(int timeout) {
    debug("FS_Cache::lock - waiting for accessMutex [timeout: %d]...\n", timeout);
    return lockWithin(timeout, DirectoryLock::Mode::exclusive);
}

int CacheStore::lockShared(int timeout) {
    debug("FS_Cache::lockShared - waiting for the directory's lock [timeout: %d]...\n", timeout);
    return lockWithin(timeout, DirectoryLock::Mode::shared);
}

// As ever, a limit of 0 is over before the first try. What is open goes on being read, or
// changed, under the lock that it was opened under.
int CacheStore::lockWithin(std::optional<int> timeout, DirectoryLock::Mode mode) {
    if (!directoryLock_) return FS_CACHE_FAILURE;
    const bool shared = mode == DirectoryLock::Mode::shared;
    const bool otherwiseOpen = open_ && readOnly_ != shared;
    if (otherwiseOpen || (timeout && *timeout <= 0)) return lockedResult(SYNC_TIMED_OUT);
    lockIsShared_ = shared;
    if (shared && accessMutex_) accessMutex_->release();
    return lockedResult(timeout ? waitFor(*directoryLock_, *timeout, mode)
                                : directoryLock_->wait(mode));
}

int CacheStore::lockedResult(int status) {
    switch (status) {
        case SYNC_SUCCESS:
            if (!accessMutex_ && !lockIsShared_)
                accessMutex_ = SysFactory::createMutex(accessMutexName(directory_).c_str());
            if (!lockIsShared_) accessMutex_->wait(1);
            debug("FS_Cache::lock - accessMutex SUCCESS!\n");
            return FS_CACHE_SUCCESS;
        case SYNC_TIMED_OUT:
            debug("FS_Cache::lock - accessMutex TIMED_OUT!\n");
            return FS_CACHE_LOCK_TIMED_OUT;
        default:
            debug("FS_Cache::lock - accessMutex FAILED!\n");
            return FS_CACHE_FAILURE;
    }
}

void CacheStore::unlock() {
    if (!directoryLock_) return;
    debug("FS_Cache::unlock - accessMutex RELEASED!\n");
    if (accessMutex_) accessMutex_->release();
    directoryLock_->release();
}

// What was changed is committed before others may read it. The files are opened anew: from
// the one lock to the other, somebody may have had the cache alone.
int CacheStore::share(int timeout) {
    if (!usable() || readOnly_) return FS_CACHE_FAILURE;
    close();
    if (broken_) return FS_CACHE_UNUSABLE;
    compact();
    if (const int status = lockShared(timeout)) return status;
    readOnly_ = true;
    open_ = openCache();
    return open_ ? FS_CACHE_SUCCESS : FS_CACHE_NEEDS_CHANGE;
}

// ---- Opening and creating ---------------------------------------------------

int CacheStore::create(unsigned timeout, int disposition) {
    debug("FS_Cache::create - entering... [timeout = %d]\n", static_cast<int>(timeout));
    if (!initialized_) return FS_CACHE_FAILURE;
    if (opened_) {
        debug("FS_Cache::create - retValue is CACHE_ALREADY_OPENED!\n");
        return FS_CACHE_ALREADY_OPENED;
    }
    readOnly_ = lockIsShared_;
    bool done = false;
    switch (disposition) {
        case FS_CACHE_CREATE:
            debug("FS_Cache::create - creationDisposition is FS_CACHE_CREATE\n");
            done = createCache();
            break;
        case FS_CACHE_OPEN:
            debug("FS_Cache::create - creationDisposition is FS_CACHE_OPEN\n");
            done = openCache();
            break;
        case FS_CACHE_OPEN_ALWAYS:
            debug("FS_Cache::create - creationDisposition is FS_CACHE_OPEN_ALWAYS\n");
            done = openCache() || createCache();
            break;
        default:
            break;
    }
    if (!done) return readOnly_ ? FS_CACHE_NEEDS_CHANGE : FS_CACHE_FAILURE;
    debug("FS_Cache::create - retValue is SUCCESS\n");
    opened_ = true;
    open_ = true;
    oldIndex_ = directoriesIndex_;
    return FS_CACHE_SUCCESS;
}

// The old counter goes, and the mark comes, before a file of an old cache is emptied:
// half of a new cache beside half of an old one must not be taken for a good one.
bool CacheStore::createCache() {
    if (!beginChanges()) return false;
    removeSmallFiles();
    files_ = createTable(filesName_, TableKind::files(), "createFilesTable");
    if (!files_) return false;
    directories_ =
        createTable(directoriesName_, TableKind::directories(), "createDirectoriesTable");
    if (!directories_) {
        files_.reset();
        return false;
    }
    beginCacheUpdate();
    broken_ = false;
    directoriesIndex_ = 0;
    unread_.reset(0);
    openRecordSets();
    return updateDirectoriesIDCounter();
}

bool CacheStore::openCache() {
    debug("FS_Cache::openCache - entering...\n");
    if (!initialized_) return false;
    debug("FS_Cache::openCache - cacheInitialized is true\n");
    if (insideCacheUpdate() || !getDirectoriesIDCounter() ||
        directoriesIndex_ > kLargestDirectoriesIndex) {
        debug("FS_Cache::openCache() - cache corrupted or directoriesIndex invalid\n");
        broken_ = true;
        return false;
    }
    if (!sums_->load() || !smallFilesHold()) {
        debug("FS_Cache::openCache - checksums are missing or do not fit!\n");
        return false;
    }
    files_ = openTable(filesName_, TableKind::files());
    if (!files_) {
        debug("FS_Cache::openCache - open tbFiles failed!\n");
        return false;
    }
    directories_ = openTable(directoriesName_, TableKind::directories());
    if (!directories_) {
        debug("FS_Cache::openCache - open tbDirectories failed!\n");
        files_.reset();
        return false;
    }
    debug("FS_Cache::openCache() - directoriesIndex = %d\n", static_cast<int>(directoriesIndex_));
    loadUnread();
    beginCacheUpdate();
    broken_ = false;
    openRecordSets();
    debug("FS_Cache::openCache - cache opened!\n");
    return true;
}

// Without it the cache is good: only nothing is known of its directories.
void CacheStore::loadUnread() {
    const std::wstring file = path(CacheUnreadSuffix);
    if (sums_->holds(file)) {
        unread_.load(file, directoriesIndex_);
    } else {
        unread_.reset(directoriesIndex_);
        sums_->remove(file);
    }
}

void CacheStore::openRecordSets() {
    files_->expectConstantKeys();
    files_->expectPatterns(!unread_.plainNames());
    directories_->expectConstantKeys();
    filesRecords_ = files_->openRecordSet();
    directoryRecords_ = directories_->openRecordSet();
    ancestorRecords_ = directories_->openRecordSet();
}

std::unique_ptr<FS_Table> CacheStore::openTable(const std::wstring& name, const TableKind& kind) {
    debug("FS_Cache::openTable - entering... [%ls]\n", name.c_str());
    auto table = std::make_unique<FS_Table>(name.c_str(), directory_.c_str(), compressed_);
    table->keepSums(sums_.get());
    if (!table->open() || !kind.fits(*table)) table.reset();
    debug("FS_Cache::openTable - exit. [retValue is %d]\n", table ? 1 : 0);
    return table;
}

std::unique_ptr<FS_Table> CacheStore::createTable(const std::wstring& name, const TableKind& kind,
                                                  const char* step) {
    debug("FS_Cache::%s - entering...\n", step);
    auto table = std::make_unique<FS_Table>(name.c_str(), directory_.c_str(), compressed_);
    table->keepSums(sums_.get());
    if (kind.addTo(*table) && table->create()) {
        kind.addIndexes(*table, name);
    } else {
        table.reset();
    }
    debug("FS_Cache::%s - exit. [retValue is %d]\n", step, table ? 1 : 0);
    return table;
}

bool CacheStore::isRefreshed(const std::wstring& path, unsigned id) const {
    const auto found = refreshed_.find(path);
    return found != refreshed_.end() && (id > oldIndex_ || !found->second);
}

unsigned CacheStore::builtTime(const RecordSet& directory) const {
    if (!unread_.knows(directory.getFieldAsInt32(DIRECTORIES_ID))) return 0;
    return directory.getFieldAsInt32(DIRECTORIES_CREATIONTIME);
}

// ---- Closing ----------------------------------------------------------------

// What changed is on disk before the mark goes; what did not get there, or was found
// damaged, keeps the mark. A reader places one for that: it has the next user make the cache
// anew, and changes nothing for those who read.
bool CacheStore::close() {
    // Once closed, the lock may be another's, and so the mark.
    if (!initialized_ || !open_) return true;
    if (damaged()) broken_ = true;
    compactionDue_ = !readOnly_ && isCompactionDue();
    if (compactionDue_ && !isSound()) broken_ = true;
    for (FS_Table* table : {files_.get(), directories_.get()})
        if (table && table->isOpen() && !table->close()) broken_ = true;
    filesRecords_ = directoryRecords_ = ancestorRecords_ = RecordSet();
    if (damaged()) broken_ = true;
    if (changed_ && !broken_ && !bringToDisk()) broken_ = true;
    open_ = false;
    changed_ = false;
    if (broken_ && readOnly_) placeMark();
    if (broken_ || readOnly_) return true;
    endCacheUpdate();
    return true;
}

// The files beside the tables; the tables did it when they were closed.
bool CacheStore::bringToDisk() {
    return unread_.save(path(CacheUnreadSuffix), directoriesIndex_) &&
           syncFile(path(CacheCounterSuffix)) && takeUpSmallFiles() && saveSums() &&
           syncDirectory(directory_);
}

bool CacheStore::isCompactionDue() {
    const int percent = compactionPercent();
    return files_ && directories_ && open_ &&
           (isDue(*files_, percent) || isDue(*directories_, percent));
}

int CacheStore::compactionPercent() const {
    return shrink_ ? 0 : kCompactionPercent;
}

unsigned long long CacheStore::bytes() const {
    return files_->bytes() + directories_->bytes();
}

unsigned long long CacheStore::bytesInUse() const {
    return files_->bytesInUse() + directories_->bytesInUse();
}

bool CacheStore::compact() {
    if (!initialized_ || readOnly_) return false;
    if (insideCacheUpdate()) {
        broken_ = true;
        return false;
    }
    if (!files_ || !directories_) return false;
    // What will not be changed needs no mark.
    if (compactionDue_) beginCacheUpdate();
    if (compactionDue_ && !beginChanges()) return false;
    const bool compacted =
        directories_->compact(compactionPercent()) && files_->compact(compactionPercent());
    if (!compactionDue_) return compacted;
    // A compaction that failed may have left files of two generations: the mark stays.
    const bool onDisk = compacted && saveSums() && syncDirectory(directory_);
    changed_ = false;
    if (compacted && onDisk) endCacheUpdate();
    return compacted && onDisk;
}

bool CacheStore::remove() {
    if (!files_ || !directories_ || open_ || readOnly_) return false;
    const bool filesErased = files_->erase();
    const bool directoriesErased = directories_->erase();
    removeSmallFiles();
    return filesErased && directoriesErased;
}

bool CacheStore::damaged() const {
    return (sums_ && sums_->damaged()) || (files_ && files_->damaged()) ||
           (directories_ && directories_->damaged());
}

// ---- Checksums --------------------------------------------------------------

bool CacheStore::recordsHold() {
    return directories_->holdsAll() && files_->holdsAll();
}

// The files that are written whole, but that of unread directories.
std::array<std::wstring, 3> CacheStore::smallFiles() const {
    return {path(CacheCounterSuffix), path(FS_Table::INDEX_LIST_SUFFIX),
            pathOf(filesName_, FS_Table::INDEX_LIST_SUFFIX)};
}

bool CacheStore::smallFilesHold() {
    const auto files = smallFiles();
    return std::all_of(files.begin(), files.end(),
                       [this](const std::wstring& file) { return sums_->holds(file); });
}

bool CacheStore::takeUpSmallFiles() {
    const auto files = smallFiles();
    return sums_->takeUp(path(CacheUnreadSuffix)) &&
           std::all_of(files.begin(), files.end(),
                       [this](const std::wstring& file) { return sums_->takeUp(file); });
}

// Searches read what they need: one may go on for long without the part that is damaged.
bool CacheStore::check(FsCacheCheck& result) {
    if (!initialized_ || opened_) return false;
    result = FsCacheCheck();
    if (insideCacheUpdate()) {
        result.problems.emplace_back(
            L"it is marked: its last use was interrupted, or found it damaged");
        return true;
    }
    if (!isThere()) return true;
    if (compareWithSums(path(CacheSumsSuffix), result)) {
        if (create(0, FS_CACHE_OPEN) != FS_CACHE_SUCCESS || !isSound())
            result.problems.emplace_back(L"its files do not fit each other");
        close();
    }
    if (!result.problems.empty()) placeMark();
    return true;
}

// When everything else is on disk.
bool CacheStore::saveSums() {
    return sums_->write() && sums_->replace();
}

bool CacheStore::isThere() const {
    return presenceOf(path(CacheCounterSuffix)) != Presence::absent ||
           presenceOf(path(CacheSumsSuffix)) != Presence::absent;
}

// ---- Mark and counter -------------------------------------------------------

bool CacheStore::placeMark() {
    return !cacheChecker_ || presenceOf(path(CacheUpdateSuffix)) == Presence::there ||
           writeSmallFile(path(CacheUpdateSuffix), nullptr, 0);
}

bool CacheStore::beginChanges() {
    if (readOnly_) return false;
    if (changed_) return true;
    if (open_ && (damaged() || !isSound())) return false;
    if (cacheChecker_ && !(placeMark() && syncDirectory(directory_))) return false;
    changed_ = true;
    return true;
}

// What is found good only where it is read must not be built upon: new records would
// lend a meaning to offsets and slots that lead nowhere.
bool CacheStore::isSound() {
    return directories_->checkStructure() && files_->checkStructure() && hasNoIdAboveCounter();
}

bool CacheStore::hasNoIdAboveCounter() {
    // By the plain rules, a number stands for 2^31 - 1 where it is larger.
    CriteriaEvaluator above((L"[ID]>" + std::to_wstring(directoriesIndex_)).c_str(),
                            CriteriaRules::search);
    RecordSet records = directories_->openRecordSet();
    records.setCriteria(&above, true);
    const bool found = records.moveFirst();
    directories_->closeRecordSet(records);
    if (found) directories_->reportDamage("an ID that was not given yet");
    return !found;
}

void CacheStore::beginCacheUpdate() {
    if (!cacheChecker_ || readOnly_) return;
    debug("FS_Cache::beginCacheUpdate - begin cache update: %ls\n",
          path(CacheUpdateSuffix).c_str());
    placeMark();
}

void CacheStore::endCacheUpdate() {
    if (!cacheChecker_) return;
    debug("FS_Cache::endCacheUpdate - end cache update: %ls\n", path(CacheUpdateSuffix).c_str());
    removeFile(path(CacheUpdateSuffix).c_str());
}

bool CacheStore::insideCacheUpdate() {
    if (!cacheChecker_) {
        debug("FS_Cache::insideCacheUpdate - cacheChecker disabled!\n");
        return false;
    }
    const bool inside = presenceOf(path(CacheUpdateSuffix)) != Presence::absent;
    debug("FS_Cache::insideCacheUpdate - inside cache update = %s\n", inside ? "true" : "false");
    return inside;
}

bool CacheStore::getDirectoriesIDCounter() {
    std::array<unsigned char, 4> bytes{};
    if (!readSmallFile(path(CacheCounterSuffix), bytes.data(), bytes.size())) return false;
    directoriesIndex_ = fromLittleEndian(bytes);
    return true;
}

bool CacheStore::updateDirectoriesIDCounter() {
    const auto bytes = littleEndian(directoriesIndex_);
    return writeSmallFile(path(CacheCounterSuffix), bytes.data(), bytes.size());
}

void CacheStore::expectPatterns() {
    files_->expectPatterns(true);
    unread_.notePattern();
}

void CacheStore::removeSmallFiles() {
    removeFile(path(CacheCounterSuffix).c_str());
    removeFile(path(CacheUnreadSuffix).c_str());
    sums_->clear();
    sums_->erase();
}

}  // namespace fscanner
