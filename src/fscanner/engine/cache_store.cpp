#include "fscanner/engine/cache_store.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/reports.h"
#include "fscanner/engine/watch_protocol.h"
#include "fscanner/platform/directory.h"
#include "fscanner/platform/paths.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

namespace {

// 95 % of the range: beyond it a cache is made anew rather than run out of IDs.
constexpr unsigned kLargestDirectoriesIndex = 0xF3333333;
constexpr int kCompactionPercent = 30;
constexpr unsigned kFreeStates = 16U << 20;  // journal size below which a state is always kept
// Written whole at the end of a session.
const std::array<const wchar_t*, 2> kSmallFiles = {CacheCounterSuffix, CacheUnreadSuffix};
// All that lies beside the tables, but the checksums of all.
const std::array<const wchar_t*, 3> kFilesBeside = {CacheCounterSuffix, CacheUnreadSuffix,
                                                    CacheStampsSuffix};

}  // namespace

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
    lock_ = std::make_unique<CacheLock>(directory_);
    mark_ = CacheMark(path(CacheUpdateSuffix), directory_, cacheChecker_);
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
    return joinPath(directory_, table + suffix);
}

std::wstring CacheStore::freshPath(const wchar_t* suffix) const {
    return pathOf(directoriesName_ + (anew_ ? TableReplacement::kSuffix : L""), suffix);
}

// ---- Locking ----------------------------------------------------------------

Status CacheStore::lock() {
    debug("FS_Cache::lock - waiting for accessMutex...\n");
    return lockWithin(std::nullopt, DirectoryLock::Mode::exclusive);
}

Status CacheStore::lock(int timeout) {
    debug("FS_Cache::lock - waiting for accessMutex [timeout: %d]...\n", timeout);
    return lockWithin(timeout, DirectoryLock::Mode::exclusive);
}

Status CacheStore::lockShared(int timeout) {
    debug("FS_Cache::lockShared - waiting for the directory's lock [timeout: %d]...\n", timeout);
    return lockWithin(timeout, DirectoryLock::Mode::shared);
}

// A cache that is open in one mode cannot be locked in the other.
Status CacheStore::lockWithin(std::optional<int> timeout, DirectoryLock::Mode mode) {
    if (!lock_) return Status::failure;
    const bool otherwiseOpen = open_ && readOnly_ != (mode == DirectoryLock::Mode::shared);
    return lock_->take(otherwiseOpen ? 0 : timeout, mode);
}

void CacheStore::unlock() {
    if (lock_) lock_->release();
}

// Changes are committed before others may read them. The files are opened anew, because
// another process may have had the cache alone between the two locks.
Status CacheStore::share(int timeout) {
    if (!usable() || readOnly_) return Status::failure;
    close();
    if (broken_) return Status::unusable;
    compact();
    const Status status = lockShared(timeout);
    if (status != Status::success) return status;
    readOnly_ = true;
    open_ = openCache();
    return open_ ? Status::success : Status::needsChange;
}

// ---- Opening and creating ---------------------------------------------------

bool CacheStore::isOwn(const DirectoryStamp& stamp) {
    if (!own_) {
        own_.emplace();
        Directory directory;
        if (directory.openPath(toMultibyte(directory_).c_str(), DirectoryUse::reach) == 0)
            (void)directory.identify(*own_);
    }
    return own_->inode != 0 && own_->inode == stamp.inode && own_->device == stamp.device;
}

bool CacheStore::isPassing(const std::wstring& directory, const std::wstring& name) const {
    if (directory.size() != directory_.size() + 1 || !directory.starts_with(directory_))
        return false;
    const std::wstring anew = directoriesName_ + TableReplacement::kSuffix;
    const std::wstring newSums = lastName(sums_->renaming().first);
    const auto names = cacheFileNames({directoriesName_, filesName_});
    return std::find(names.begin(), names.end(), name) != names.end() &&
           (name == directoriesName_ + CacheUpdateSuffix ||
            name == directoriesName_ + CacheUndoSuffix || name == newSums ||
            name.find(TableReplacement::kSuffix) != name.npos);
}

Status CacheStore::create(unsigned timeout, int disposition) {
    debug("FS_Cache::create - entering... [timeout = %d]\n", static_cast<int>(timeout));
    if (!initialized_) return Status::failure;
    if (opened_) {
        debug("FS_Cache::create - retValue is CACHE_ALREADY_OPENED!\n");
        return Status::alreadyOpened;
    }
    readOnly_ = isLockShared();
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
    if (!done) return readOnly_ ? Status::needsChange : Status::failure;
    debug("FS_Cache::create - retValue is SUCCESS\n");
    opened_ = true;
    open_ = true;
    oldIndex_ = directoriesIndex_;
    return Status::success;
}

// The old counter goes, and the mark comes, before a file of an old cache is emptied:
// half of a new cache beside half of an old one must not be taken for a good one.
bool CacheStore::createCache() {
    if (readOnly_ || !mark_.placeSynced()) return false;
    changed_ = changeTried_ = true;
    if (journal_) journal_->remove();
    removeSmallFiles();
    files_ = TableKind::files().create(filesName_, place(), "createFilesTable");
    if (!files_) return false;
    directories_ =
        TableKind::directories().create(directoriesName_, place(), "createDirectoriesTable");
    if (!directories_ || !stamps_.create(path(CacheStampsSuffix), *sums_)) {
        files_.reset();
        directories_.reset();
        return false;
    }
    mark_.beginCacheUpdate();
    broken_ = false;
    directoriesIndex_ = 0;
    unread_.reset(0);
    openRecordSets();
    return updateDirectoriesIDCounter();
}

// Only under the exclusive lock: otherwise the session that left the mark may still be
// running. A mark that a reader placed has no journal beside it.
void CacheStore::recoverCache() {
    if (readOnly_ || !lock_->isAlone() || !journal_ || !mark_.insideCacheUpdate()) return;
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
    recoverCache();
    if (mark_.insideCacheUpdate() || !readCounter(path(CacheCounterSuffix), directoriesIndex_) ||
        directoriesIndex_ > kLargestDirectoriesIndex) {
        debug("FS_Cache::openCache() - cache corrupted or directoriesIndex invalid\n");
        broken_ = true;
        return false;
    }
    if (!sums_->load() || !smallFilesHold()) {
        debug("FS_Cache::openCache - checksums are missing or do not fit!\n");
        return false;
    }
    files_ = TableKind::files().open(filesName_, place());
    if (!files_) {
        debug("FS_Cache::openCache - open tbFiles failed!\n");
        return false;
    }
    directories_ = TableKind::directories().open(directoriesName_, place());
    if (!directories_) {
        debug("FS_Cache::openCache - open tbDirectories failed!\n");
        files_.reset();
        return false;
    }
    debug("FS_Cache::openCache() - directoriesIndex = %d\n", static_cast<int>(directoriesIndex_));
    loadUnread();
    // Without a journal the cache can only be read.
    if (journal_ && !readOnly_ && !journal_->start(false)) journal_->remove();
    if (!readOnly_) mark_.beginCacheUpdate();
    broken_ = false;
    openRecordSets();
    debug("FS_Cache::openCache - cache opened!\n");
    return true;
}

// A cache without this file is sound, but which directories could not be read is not known.
void CacheStore::loadUnread() {
    const std::wstring file = path(CacheUnreadSuffix);
    unreadFits_ = sums_->holds(file) && unread_.load(file, directoriesIndex_);
    if (unreadFits_) return;
    unread_.reset(directoriesIndex_);
    sums_->remove(file);
}

// The sums file is replaced by each change that is kept, and tells of nothing else.
std::optional<CacheStore::Version> CacheStore::version() const {
    struct stat info {};
    if (examineFile(toMultibyte(path(CacheSumsSuffix)), info) != 0) return std::nullopt;
    const auto number = [](auto value) { return static_cast<unsigned long long>(value); };
    return Version{number(info.st_ino), number(info.st_size), number(info.st_ctim.tv_sec),
                   number(info.st_ctim.tv_nsec)};
}

// ---- Stamps -----------------------------------------------------------------

// Where there is no file of use, one is made whose entries say nothing.
bool CacheStore::openStamps() {
    return readStamps() ||
           (stamps_.create(path(CacheStampsSuffix), *sums_) && stamps_.fit(directories()));
}

bool CacheStore::readStamps() {
    return stamps_.isOpen() || stamps_.open(path(CacheStampsSuffix), *sums_, directoriesIndex_);
}

bool CacheStore::closeStamps() {
    const bool changed = changed_ && !broken_ && stamps_.isOpen();
    const bool written =
        !changed || (stamps_.trim(directories()) && stamps_.finish(directoriesIndex_));
    return stamps_.close() && written;
}

void CacheStore::openRecordSets() {
    files().expectConstantKeys();
    files().expectPatterns(!unread_.plainNames());
    directories().expectConstantKeys();
    filesRecords_ = files().openRecordSet();
    directoryRecords_ = directories().openRecordSet();
    ancestorRecords_ = directories().openRecordSet();
}

// A tree that this object built has an ID that was given since; so has one that others built later.
const CacheStore::Refreshed* CacheStore::refreshed(const std::wstring& path, unsigned id,
                                                   unsigned built) const {
    const auto found = refreshed_.find(path);
    if (found == refreshed_.end()) return nullptr;
    using How = Refreshed::How;
    const How how = found->second.how;
    const bool lost =
        (how == How::built && id <= oldIndex_) || (how == How::verified && built == 0);
    return lost ? nullptr : &found->second;
}

unsigned CacheStore::builtTime(const RecordSet& directory) const {
    if (!unread_.knows(directory.getFieldAsInt32(DIRECTORIES_ID))) return 0;
    return directory.getFieldAsInt32(DIRECTORIES_CREATIONTIME);
}

// ---- All anew ---------------------------------------------------------------

bool CacheStore::startAnew() {
    if (changed_ || readOnly_ || !journal_ || !journal_->isStarted() || !tellWatcher())
        return false;
    if (roomIn(directory_) < bytes() + bytes() / 4) return false;
    changeTried_ = true;
    anew_ = std::make_unique<Anew>(*files_, *directories_);
    const bool made = journal_->announce(renamesAnew()) && mark_.placeSynced() &&
                      anew_->files.create() && anew_->directories.create() &&
                      stamps_.create(freshPath(CacheStampsSuffix), *sums_);
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
    (void)stamps_.close();
    sums_->remove(freshPath(CacheStampsSuffix));
    for (const wchar_t* suffix : kFilesBeside) removeFile(freshPath(suffix).c_str());
    sums_->eraseNew();
    anew_->files.abandon();
    anew_->directories.abandon();
    anew_.reset();
}

Renames CacheStore::renamesAnew() const {
    Renames renames = anew_->files.renames();
    for (const auto& one : anew_->directories.renames()) renames.push_back(one);
    for (const wchar_t* suffix : kFilesBeside)
        renames.emplace_back(freshPath(suffix), path(suffix));
    renames.push_back(sums_->renaming());
    return renames;
}

// Everything is on disk. The next session finishes the renames that were not made.
bool CacheStore::bringAnew() {
    if (!journal_->noteReplacing()) return false;
    bool placed = anew_->files.takePlaces() && anew_->directories.takePlaces();
    for (const wchar_t* suffix : kFilesBeside)
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
    changed_ = changeTried_ = watcherTold_ = false;
    return true;
}

bool CacheStore::closeTables() {
    bool closed = closeStamps();
    for (FS_Table* table : {&files(), &directories()})
        if (table->isOpen() && !table->close()) closed = false;
    return closed;
}

// Once the journal has the note that all is done, nothing is undone any more.
bool CacheStore::commit() {
    if (changed_ && !(writeSmallFiles() && bringToDisk())) return false;
    if (anew_ && !bringAnew()) return false;
    if (changed_ && journal_ && journal_->isStarted() && !journal_->noteDone()) return false;
    endChanges();
    return true;
}

void CacheStore::endChanges() {
    mark_.endCacheUpdate();
    if (journal_) journal_->remove();
}

// The sums come last: they hold checksums of all the others.
bool CacheStore::writeSmallFiles() {
    return unread_.save(freshPath(CacheUnreadSuffix), directoriesIndex_) &&
           writeCounter(freshPath(CacheCounterSuffix), directoriesIndex_) && takeUpSmallFiles() &&
           sums_->write();
}

// The files beside the tables. The tables were synced when they were closed.
bool CacheStore::bringToDisk() {
    return syncFile(freshPath(CacheUnreadSuffix)) && syncFile(freshPath(CacheCounterSuffix)) &&
           sums_->sync() && (anew_ || sums_->replace()) && syncDirectory(directory_);
}

bool CacheStore::isCompactionDue() {
    const int percent = compactionPercent();
    return files_ && directories_ && open_ &&
           (files().isCompactionDue(percent) || directories().isCompactionDue(percent));
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
    if (mark_.insideCacheUpdate()) {
        broken_ = true;
        return false;
    }
    if (!files_ || !directories_) return false;
    // Nothing will be changed, so that no mark is needed.
    if (!compactionDue_) return compactTables(nullptr);
    if (journal_ && !journal_->start(false)) return false;
    mark_.beginCacheUpdate();
    if (mark_.placeSynced() && compactTables(journal_.get()) && syncDirectory(directory_)) {
        endChanges();
        return true;
    }
    if (damaged())
        markAsDamaged();
    else
        recoverCache();
    return false;
}

// Each for itself: the tables refer to each other by IDs, which a compaction keeps.
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

// Tables that are made anew use the index lists of the old ones.
std::array<std::wstring, 2> CacheStore::indexLists() const {
    return {path(FS_Table::kIndexListSuffix), pathOf(filesName_, FS_Table::kIndexListSuffix)};
}

// Compares the small files with their checksums, but for that of unread directories.
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

// Searches compare only what they read: damage elsewhere may stay unseen for long.
bool CacheStore::check(FsCacheCheck& result) {
    if (!initialized_ || opened_) return false;
    result = FsCacheCheck();
    readOnly_ = isLockShared();
    recoverCache();
    if (mark_.insideCacheUpdate()) {
        result.problems.emplace_back(
            L"it is marked: its last use was interrupted, or found it damaged");
        return true;
    }
    if (!isThere()) return true;
    if (compareWithSums(path(CacheSumsSuffix), result)) {
        if (create(0, FS_CACHE_OPEN) != Status::success || !isSound())
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

// A mark without a journal makes the next user build the cache anew. A reader may remove the
// journal beside other readers: nobody writes one while the cache is shared.
void CacheStore::markAsDamaged() {
    if (journal_) journal_->remove();
    mark_.place();
}

// Once in a session is enough: nobody else reads the cache meanwhile.
bool CacheStore::tellWatcher() {
    if (!watched_ && !watcherTold_) watcherTold_ = countChange(directory_);
    return watched_ || watcherTold_;
}

bool CacheStore::beginChanges() {
    if (readOnly_ || !tellWatcher()) return false;
    if (changed_) return true;
    changeTried_ = true;
    if (damaged() || !hasSoundEnds() || !openStamps() || !keepState() || !mark_.placeSynced())
        return false;
    changed_ = true;
    return true;
}

// Keeps the state, so that finished trees stay when the next one is interrupted. No state is
// kept while all is made anew (there is only the old cache to go back to) nor before the
// first tree of a new cache.
bool CacheStore::beginTree() {
    if (readOnly_ || !changed_ || !tellWatcher()) return beginChanges();
    if (anew_ || !journal_ || directoriesIndex_ == 0 || !isStateWorthIt()) return true;
    if (!stamps_.finish(directoriesIndex_)) return false;
    sums_->renew(mappedFiles());
    return writeSmallFiles() && sums_->replace() && keepState();
}

// A state takes a 1024th of the tables' size, for their checksums. In a large cache, several
// small trees share one.
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

std::vector<LinuxMmFile*> CacheStore::mappedFiles() {
    std::vector<LinuxMmFile*> all = files_->mappedFiles();
    for (LinuxMmFile* file : directories_->mappedFiles()) all.push_back(file);
    all.push_back(&stamps_.file());
    return all;
}

// Checks the ends of the files, where records are added: a damaged offset, slot or ID beyond
// them must not come to point at a new record. Changes elsewhere are checked where they are made.
bool CacheStore::hasSoundEnds() {
    if (!directories_->checkEnds() || !files_->checkEnds()) return false;
    // The counter is in two files, and one may be wrong.
    return unreadFits_ || hasNoIdAboveCounter();
}

// For a check and before a compaction, which reads everything.
bool CacheStore::isSound() {
    return directories().checkStructure() && files().checkStructure() && hasNoIdAboveCounter();
}

bool CacheStore::hasNoIdAboveCounter() {
    // The plain rules would read a larger number as 2^31 - 1.
    CriteriaEvaluator above((L"[ID]>" + std::to_wstring(directoriesIndex_)).c_str(),
                            CriteriaRules::search);
    RecordSet records = directories().openRecordSet();
    records.setCriteria(&above, true);
    const bool found = records.moveFirst();
    directories().closeRecordSet(records);
    if (found) directories().reportDamage("an ID that was not given yet");
    return !found;
}

bool CacheStore::updateDirectoriesIDCounter() {
    return writeCounter(freshPath(CacheCounterSuffix), directoriesIndex_);
}

void CacheStore::expectPatterns() {
    files().expectPatterns(true);
    unread_.notePattern();
}

void CacheStore::removeSmallFiles() {
    for (const wchar_t* suffix : kFilesBeside) removeFile(path(suffix).c_str());
    sums_->clear();
    sums_->erase();
}

}  // namespace fscanner
