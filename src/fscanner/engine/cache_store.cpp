#include "fscanner/engine/cache_store.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cwchar>

#include "fscanner/common/paths.h"
#include "fscanner/common/time.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_report.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/platform/small_file.h"
#include "fscanner/platform/sysfactory.h"

namespace fscanner {

const wchar_t* CacheUpdateSuffix = L".cuflag";
const wchar_t* CacheCounterSuffix = L".counter";
const wchar_t* CacheUnreadSuffix = L".unread";
const wchar_t* CacheSumsSuffix = L".sums";
const wchar_t* CacheUndoSuffix = L".undo";
const wchar_t* field_ID = L"ID";

namespace {

// 95 % of the range: beyond it a cache is made anew rather than run out of IDs.
constexpr unsigned kLargestDirectoriesIndex = 0xF3333333;
constexpr int kCompactionPercent = 30;
constexpr unsigned kFreeStates = 16U << 20;  // bytes of a journal
const std::array<const wchar_t*, 2> kSmallFiles = {CacheCounterSuffix, CacheUnreadSuffix};

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
    if (cacheChecker_)
        journal_ = std::make_unique<UndoJournal>(directory_, directoriesName_ + CacheUndoSuffix);
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

std::wstring CacheStore::freshPath(const wchar_t* suffix) const {
    return pathOf(directoriesName_ + (anew_ ? TableReplacement::SUFFIX : L""), suffix);
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
    hasAlone_ = false;
    if (shared && accessMutex_) accessMutex_->release();
    return lockedResult(timeout ? waitFor(*directoryLock_, *timeout, mode)
                                : directoryLock_->wait(mode));
}

int CacheStore::lockedResult(int status) {
    switch (status) {
        case SYNC_SUCCESS:
            hasAlone_ = !lockIsShared_;
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
    hasAlone_ = false;
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
            recoverCache();
            done = openCache();
            break;
        case FS_CACHE_OPEN_ALWAYS:
            debug("FS_Cache::create - creationDisposition is FS_CACHE_OPEN_ALWAYS\n");
            recoverCache();
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
    if (readOnly_ || !placeSyncedMark()) return false;
    changed_ = changeTried_ = true;
    if (journal_) journal_->remove();
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

// Only for whoever has the cache alone: what looks like another's last session may be going
// on. The mark may also be a reader's, which leaves no journal.
void CacheStore::recoverCache() {
    if (!initialized_ || readOnly_ || !hasAlone_ || !journal_ || !insideCacheUpdate()) return;
    sums_->clear();
    const bool recovered = journal_->recover();
    debug("FS_Cache::recover - the last use was interrupted: %s\n",
          recovered ? "what it began was undone" : "nothing tells what it changed");
    if (!recovered) return;
    sums_->eraseNew();
    endChanges();
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
    // Without a journal the cache can be read alone.
    if (journal_ && !readOnly_ && !journal_->start(false)) journal_->remove();
    beginCacheUpdate();
    broken_ = false;
    openRecordSets();
    debug("FS_Cache::openCache - cache opened!\n");
    return true;
}

// Without it the cache is good: only nothing is known of its directories.
void CacheStore::loadUnread() {
    const std::wstring file = path(CacheUnreadSuffix);
    unreadFits_ = sums_->holds(file) && unread_.load(file, directoriesIndex_);
    if (unreadFits_) return;
    unread_.reset(directoriesIndex_);
    sums_->remove(file);
}

void CacheStore::openRecordSets() {
    files().expectConstantKeys();
    files().expectPatterns(!unread_.plainNames());
    directories().expectConstantKeys();
    filesRecords_ = files().openRecordSet();
    directoryRecords_ = directories().openRecordSet();
    ancestorRecords_ = directories().openRecordSet();
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

// ---- All anew ---------------------------------------------------------------

bool CacheStore::startAnew() {
    if (changed_ || readOnly_ || !journal_ || !journal_->isStarted()) return false;
    if (roomIn(directory_) < bytes() + bytes() / 4) return false;
    changeTried_ = true;
    anew_ = std::make_unique<Anew>(*files_, *directories_);
    const bool made = journal_->announce(renamesAnew()) && placeSyncedMark() &&
                      anew_->files.create() && anew_->directories.create();
    if (!made) {
        abandonAnew();
        return false;
    }
    files_->close();
    directories_->close();
    changed_ = true;
    unread_.reset(0);
    openRecordSets();
    return true;
}

void CacheStore::abandonAnew() {
    for (const auto& [from, to] : renamesAnew()) removeFile(from.c_str());
    anew_->files.abandon();
    anew_->directories.abandon();
    anew_.reset();
}

Renames CacheStore::renamesAnew() const {
    Renames renames = anew_->files.renames();
    for (const auto& one : anew_->directories.renames()) renames.push_back(one);
    for (const wchar_t* suffix : kSmallFiles) renames.emplace_back(freshPath(suffix), path(suffix));
    renames.push_back(sums_->renaming());
    return renames;
}

// All of it is on disk. What did not get its place is for the next one to finish.
bool CacheStore::bringAnew() {
    if (!journal_->noteReplacing()) return false;
    bool placed = anew_->files.takePlaces() && anew_->directories.takePlaces();
    for (const wchar_t* suffix : kSmallFiles)
        placed = placed && renameFile(freshPath(suffix).c_str(), path(suffix).c_str()) == 0;
    anew_.reset();
    return placed && sums_->replace() && syncDirectory(directory_);
}

// ---- Closing ----------------------------------------------------------------

// What changed is on disk before the mark goes; what did not get there, or was found
// damaged, keeps the mark. A reader places one for that: it has the next user make the cache
// anew, and changes nothing for those who read.
bool CacheStore::close() {
    // Once closed, the lock may be another's, and so the mark.
    if (!initialized_ || !open_) return true;
    if (damaged()) broken_ = true;
    // What was not finished is undone, and what it left does not fit together.
    compactionDue_ = !readOnly_ && !broken_ && isCompactionDue();
    if (compactionDue_ && !isSound()) broken_ = true;
    filesRecords_ = directoryRecords_ = ancestorRecords_ = RecordSet();
    if (!closeTables() || damaged()) broken_ = true;
    if (!broken_ && !readOnly_ && !commit()) broken_ = true;
    // What was there before a change is as good as it was: the next one goes back to it.
    if (broken_ && (damaged() || !changeTried_)) markAsDamaged();
    if (anew_) abandonAnew();
    open_ = false;
    changed_ = changeTried_ = false;
    return true;
}

bool CacheStore::closeTables() {
    bool closed = true;
    for (FS_Table* table : {&files(), &directories()})
        if (table->isOpen() && !table->close()) closed = false;
    return closed;
}

// From the moment that the journal says so, nothing is undone any more.
bool CacheStore::commit() {
    if (changed_ && !(writeSmallFiles() && bringToDisk())) return false;
    if (anew_ && !bringAnew()) return false;
    if (changed_ && journal_ && journal_->isStarted() && !journal_->noteDone()) return false;
    endChanges();
    return true;
}

void CacheStore::endChanges() {
    endCacheUpdate();
    if (journal_) journal_->remove();
}

// The sums are those of all other files as they are now.
bool CacheStore::writeSmallFiles() {
    return unread_.save(freshPath(CacheUnreadSuffix), directoriesIndex_) &&
           writeCounter(freshPath(CacheCounterSuffix)) && takeUpSmallFiles() && sums_->write();
}

// The files beside the tables; the tables did it when they were closed.
bool CacheStore::bringToDisk() {
    return syncFile(freshPath(CacheUnreadSuffix)) && syncFile(freshPath(CacheCounterSuffix)) &&
           sums_->sync() && (anew_ || sums_->replace()) && syncDirectory(directory_);
}

bool CacheStore::isCompactionDue() {
    const int percent = compactionPercent();
    return files_ && directories_ && open_ &&
           (isDue(files(), percent) || isDue(directories(), percent));
}

int CacheStore::compactionPercent() const {
    return shrink_ ? 0 : kCompactionPercent;
}

unsigned long long CacheStore::bytes() {
    return files().bytes() + directories().bytes();
}

unsigned long long CacheStore::bytesInUse() {
    return files().bytesInUse() + directories().bytesInUse();
}

bool CacheStore::compact() {
    if (!initialized_ || readOnly_) return false;
    if (insideCacheUpdate()) {
        broken_ = true;
        return false;
    }
    if (!files_ || !directories_) return false;
    // What will not be changed needs no mark.
    if (!compactionDue_) return compactTables(nullptr);
    if (journal_ && !journal_->start(false)) return false;
    beginCacheUpdate();
    if (placeSyncedMark() && compactTables(journal_.get()) && syncDirectory(directory_)) {
        endChanges();
        return true;
    }
    if (damaged())
        markAsDamaged();
    else
        recoverCache();
    return false;
}

// One after the other: the tables know of each other by IDs alone, which stay.
bool CacheStore::compactTables(UndoJournal* journal) {
    return directories_->compact(compactionPercent(), journal) &&
           files_->compact(compactionPercent(), journal);
}

bool CacheStore::remove() {
    if (!files_ || !directories_ || open_ || readOnly_) return false;
    const bool filesErased = files_->erase();
    const bool directoriesErased = directories_->erase();
    removeSmallFiles();
    if (journal_) journal_->remove();
    return filesErased && directoriesErased;
}

bool CacheStore::damaged() const {
    const auto found = [](const FS_Table* table) { return table && table->damaged(); };
    return (sums_ && sums_->damaged()) || found(files_.get()) || found(directories_.get()) ||
           (anew_ && (found(&anew_->files.fresh()) || found(&anew_->directories.fresh())));
}

// ---- Checksums --------------------------------------------------------------

bool CacheStore::recordsHold() {
    return directories().holdsAll() && files().holdsAll();
}

// Tables that are made anew go on with the old ones.
std::array<std::wstring, 2> CacheStore::indexLists() const {
    return {path(FS_Table::INDEX_LIST_SUFFIX), pathOf(filesName_, FS_Table::INDEX_LIST_SUFFIX)};
}

// The files that are written whole, but that of unread directories.
bool CacheStore::smallFilesHold() {
    const auto lists = indexLists();
    return sums_->holds(path(CacheCounterSuffix)) &&
           std::all_of(lists.begin(), lists.end(),
                       [this](const std::wstring& list) { return sums_->holds(list); });
}

// Files that are about to take others' places already have their names in the sums.
bool CacheStore::takeUpSmallFiles() {
    for (const wchar_t* suffix : kSmallFiles)
        if (!sums_->takeUp(freshPath(suffix))) return false;
    for (const std::wstring& list : indexLists())
        if (!sums_->takeUp(list)) return false;
    if (anew_) sums_->rename(renamesAnew());
    return true;
}

// Searches read what they need: one may go on for long without the part that is damaged.
bool CacheStore::check(FsCacheCheck& result) {
    if (!initialized_ || opened_) return false;
    result = FsCacheCheck();
    readOnly_ = lockIsShared_;
    recoverCache();
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
    if (!result.problems.empty()) markAsDamaged();
    return true;
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

bool CacheStore::placeSyncedMark() {
    return !cacheChecker_ || (placeMark() && syncDirectory(directory_));
}

// Without a journal, also one that a process left which had finished, the mark has the next
// user make the cache anew. A reader may do that beside others: nobody writes one meanwhile.
void CacheStore::markAsDamaged() {
    if (journal_) journal_->remove();
    placeMark();
}

bool CacheStore::beginChanges() {
    if (readOnly_) return false;
    if (changed_) return true;
    changeTried_ = true;
    if (damaged() || !hasSoundEnds() || !keepState() || !placeSyncedMark()) return false;
    changed_ = true;
    return true;
}

// A tree that is finished is not undone with the next one. While all is made anew there is
// only the old cache to go back to, and before the first tree of a new cache nothing.
bool CacheStore::beginTree() {
    if (readOnly_ || !changed_) return beginChanges();
    if (anew_ || !journal_ || directoriesIndex_ == 0 || !isStateWorthIt()) return true;
    sums_->renew(mappedFiles());
    return writeSmallFiles() && sums_->replace() && keepState();
}

// A state holds the checksums of all tables, a 1024th of them. Where there are many trees, small
// ones beside much share a state.
bool CacheStore::isStateWorthIt() {
    return journal_->size() < kFreeStates || bytes() > keptBytes_ + keptBytes_ / 64;
}

bool CacheStore::keepState() {
    if (!journal_) return true;
    if (!journal_->isStarted() && !journal_->start(changed_)) return false;
    std::vector<std::wstring> smallFiles{path(CacheSumsSuffix)};
    for (const wchar_t* suffix : kSmallFiles) smallFiles.push_back(path(suffix));
    keptBytes_ = bytes();
    return journal_->keep(mappedFiles(), smallFiles);
}

std::vector<LinuxMmFile*> CacheStore::mappedFiles() const {
    std::vector<LinuxMmFile*> all = files_->mappedFiles();
    for (LinuxMmFile* file : directories_->mappedFiles()) all.push_back(file);
    return all;
}

// New records must not lend a meaning to offsets, slots and IDs that lead nowhere. What is
// changed farther from the ends is checked there.
bool CacheStore::hasSoundEnds() {
    if (!directories_->checkEnds() || !files_->checkEnds()) return false;
    // Of two that tell the counter, one may be wrong.
    return unreadFits_ || hasNoIdAboveCounter();
}

// Before a compaction, which reads all.
bool CacheStore::isSound() {
    return directories().checkStructure() && files().checkStructure() && hasNoIdAboveCounter();
}

bool CacheStore::hasNoIdAboveCounter() {
    // By the plain rules, a number stands for 2^31 - 1 where it is larger.
    CriteriaEvaluator above((L"[ID]>" + std::to_wstring(directoriesIndex_)).c_str(),
                            CriteriaRules::search);
    RecordSet records = directories().openRecordSet();
    records.setCriteria(&above, true);
    const bool found = records.moveFirst();
    directories().closeRecordSet(records);
    if (found) directories().reportDamage("an ID that was not given yet");
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
    return writeCounter(freshPath(CacheCounterSuffix));
}

bool CacheStore::writeCounter(const std::wstring& path) const {
    const auto bytes = littleEndian(directoriesIndex_);
    return writeSmallFile(path, bytes.data(), bytes.size());
}

void CacheStore::expectPatterns() {
    files().expectPatterns(true);
    unread_.notePattern();
}

void CacheStore::removeSmallFiles() {
    for (const wchar_t* suffix : kSmallFiles) removeFile(path(suffix).c_str());
    sums_->clear();
    sums_->erase();
}

}  // namespace fscanner
