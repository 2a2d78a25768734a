#include "fscanner/engine/cache_extract.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <memory>

#include "fscanner/common/heap_string.h"
#include "fscanner/common/paths.h"
#include "fscanner/common/time.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/directory_chain.h"
#include "fscanner/engine/file_processor.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {

namespace {

// The criteria command "path": the directory's path by its ID, joined with the name.
class chPathCommand : public BinaryCmd {
public:
    chPathCommand(CacheStore& store, CacheTree& tree)
        : tree_(tree), directories_(store.directories().openRecordSet()), store_(store) {}
    chPathCommand(const chPathCommand&) = delete;
    chPathCommand& operator=(const chPathCommand&) = delete;
    ~chPathCommand() override { store_.directories().closeRecordSet(directories_); }

    int execute(const ExpValue& directoryId, const ExpValue& name, ExpValue& result) override;

private:
    bool findDirectory(unsigned id);

    CacheTree& tree_;
    RecordSet directories_;
    CacheStore& store_;
    std::array<wchar_t, kPathBuffer> directory_{};
    unsigned directoryId_ = 0;
};

// Files come in runs of one directory, so the last one is kept.
bool chPathCommand::findDirectory(unsigned id) {
    if (id == directoryId_ && directory_[0]) return true;
    directoryId_ = id;
    if (tree_.findPathById(directories_, id, directory_.data(), kPathBuffer)) return true;
    directory_[0] = L'\0';
    return false;
}

int chPathCommand::execute(const ExpValue& directoryId, const ExpValue& name, ExpValue& result) {
    if (name.getType() != STRING || name.text().empty()) {
        debug("chPathCommand::execute - args not valid!\n");
        return 1;
    }
    if (!findDirectory(static_cast<unsigned>(directoryId.getNumericValue()))) {
        debug("chPathCommand::execute - findPathById(...) failed!\n");
        return 1;
    }
    const HeapText path(getFullPathName(directory_.data(), name.getStringValue()));
    if (!path) {
        debug("chPathCommand::execute - getFullPathName(...) failed!\n");
        return 1;
    }
    resetExpValue(STRING, result);
    result.setStringValue(path.get());
    return 0;
}

class chTypeCommand : public TypeCommand {
public:
    chTypeCommand() : TypeCommand("chTypeCommand") {}
};

bool coversLiterally(const PathInfo& path, const wchar_t* directory) {
    const std::wstring_view whole = path.getPathName();
    if (!std::wstring_view(directory).starts_with(whole)) return false;
    const wchar_t next = directory[whole.size()];
    return next == L'\0' || (path.getRecursive() && (next == L'/' || whole.ends_with(L'/')));
}

bool isWholeTree(const PathInfo& path) {
    return path.getPathName() && path.getRecursive() && !checkWildCard(path.getPathName());
}

// Whether the path is a directory outside of this one.
bool cannotBeginIn(const PathInfo& path, const wchar_t* directory) {
    return path.getPathName() && !checkWildCard(path.getPathName()) &&
           std::wcsncmp(path.getPathName(), directory, std::wcslen(directory)) != 0;
}

constexpr unsigned kRefusedPerClock = 64;

// One run over the files table.
class Extraction {
public:
    Extraction(CacheStore& store, CacheTree& tree, FsResultSetWriter& writer,
               const ExtractionRequest& request)
        : store_(store),
          writer_(writer),
          request_(request),
          chain_(store),
          pathCommand_(store, tree),
          evaluator_(request.criteria ? request.criteria : L"") {}
    Extraction(const Extraction&) = delete;
    Extraction& operator=(const Extraction&) = delete;
    ~Extraction();

    int run();
    void tellUnread();

private:
    enum class Directory { accepted, refused, missing };

    int take(bool matched);
    static int interrupted();
    Directory enter(unsigned pathId);
    bool judge();
    bool accepts(const wchar_t* directory, bool anyBelow = false);
    bool settlesBelow(const wchar_t* directory) const;
    int coveringPair(const wchar_t* directory) const;
    const PathInfo& pathOf(int pair) const {
        return request_.pairs[static_cast<std::size_t>(pair)].path;
    }
    bool hasTime() const;
    bool goesOn();
    void noteUndecided();

    CacheStore& store_;
    FsResultSetWriter& writer_;
    const ExtractionRequest& request_;
    DirectoryChain chain_;
    chPathCommand pathCommand_;
    chTypeCommand typeCommand_;
    CriteriaEvaluator evaluator_;
    bool filtersHere_ = false;  // the criteria is checked here, behind the directory
    unsigned startTick_ = 0;
    unsigned untilClock_ = 0;
    unsigned toldTick_ = 0;         // when the observer last heard of it
    unsigned long long files_ = 0;  // that commands were run for
    unsigned pathId_ = 0;           // of the last directory seen
    Directory current_ = Directory::missing;
    int pair_ = -1;
    std::vector<PathInfo> mountPoints_;  // inside that pair
    std::size_t settledDepth_ = 0;       // in the chain: all below is accepted; 0: unknown
    std::wstring prefix_;
};

// No record set keeps the evaluator, and no name of a command hides a variable.
Extraction::~Extraction() {
    store_.filesRecords().setCriteria(nullptr, true);
    clearCommands();
}

int Extraction::run() {
    evaluator_.addCmd(L"path", STRING, NUMERIC, STRING, &pathCommand_);
    evaluator_.addCmd(L"type", NUMERIC, STRING, STRING, &typeCommand_);
    RecordSet& files = store_.filesRecords();
    files.setCriteria(&evaluator_, request_.caseSensitive);
    // A command costs much more than the test of a directory: `file` must not run over
    // the whole cache. So the record set delivers all, and the criteria comes second.
    const bool filtered = request_.criteria && *request_.criteria;
    filtersHere_ = filtered && evaluator_.compile() && evaluator_.usesCommands();
    if (filtersHere_)
        files.setCriteria(nullptr, request_.caseSensitive);
    else
        files.readLazily();
    if (scanObserver()) files.onUndecided([this] { noteUndecided(); });

    startTick_ = toldTick_ = getCoarseTickCount();
    // A lookup meets few of the offsets; who reads all records must not miss one.
    if (!files.walksIndex() && !store_.files().checkOffsets()) return FS_CACHE_UNUSABLE;
    bool found = files.moveFirst();
    for (; found; found = files.moveNext())
        if (const int status = take(!filtersHere_)) return status;
    return FS_CACHE_SUCCESS;
}

// What the answer lacks, as it was when the trees were built: the directory's files, and
// all below it.
void Extraction::tellUnread() {
    FsScanObserver* const observer = scanObserver();
    if (!observer) return;
    for (const auto& [id, unread] : store_.unread().all())
        if (chain_.enter(id) && accepts(chain_.path().c_str(), true))
            observer->skipped(chain_.path().c_str(), unread.reason, unread.error);
}

int Extraction::take(bool matched) {
    RecordSet& files = store_.filesRecords();
    const Directory directory = enter(files.getFieldAsInt32(FILES_PATHID));
    if (!matched && directory == Directory::refused) return FS_CACHE_SUCCESS;
    // The command "path" would only fail to match, and the file be missed in silence.
    if (!matched && directory == Directory::missing) return interrupted();
    if (!matched && !goesOn()) return FS_CACHE_QUERY_TIMED_OUT;
    if (!matched && evaluator_.check(request_.caseSensitive) <= 0) {
        if (evaluator_.failedOnRecord()) noteUndecided();
        return FS_CACHE_SUCCESS;
    }
    // Matches that are refused take time, too; but so little that the clock, which takes
    // more, is asked for some of them only.
    const bool asksClock = directory != Directory::refused || untilClock_-- == 0;
    if (asksClock) untilClock_ = kRefusedPerClock;
    if (asksClock && !hasTime()) {
        debug("FS_Cache::extractResults - timed out!\n");
        return FS_CACHE_QUERY_TIMED_OUT;
    }
    if (directory == Directory::missing) return interrupted();
    if (directory == Directory::accepted)
        writer_.addRecord(prefix_.c_str(), files.getFieldAsString(FILES_FILENAME),
                          files.getFieldAsInt64(FILES_SIZE), files.getFieldAsInt32(FILES_ATTR));
    return FS_CACHE_SUCCESS;
}

int Extraction::interrupted() {
    debug("FS_Cache::extractResults - findPathById() failed! extract interrupted!\n");
    return FS_CACHE_UNUSABLE;
}

// Decided once for a run of files of one directory.
Extraction::Directory Extraction::enter(unsigned pathId) {
    if (pathId == pathId_ && pathId != 0) return current_;
    pathId_ = pathId;
    current_ = Directory::missing;
    if (chain_.enter(pathId)) current_ = judge() ? Directory::accepted : Directory::refused;
    return current_;
}

bool Extraction::judge() {
    if (settledDepth_ == 0 || chain_.kept() < settledDepth_) {
        settledDepth_ = 0;
        const wchar_t* directory = chain_.path().c_str();
        if (!accepts(directory)) return false;
        if (settlesBelow(directory)) settledDepth_ = chain_.depth();
    }
    prefix_ = chain_.path();
    if (!prefix_.ends_with(L'/')) prefix_ += L'/';
    return true;
}

// Whether all that lies below an accepted directory is accepted, too, so that it need
// not be judged: it stays in its pair and its included path, and no other entry begins
// further down.
bool Extraction::settlesBelow(const wchar_t* directory) const {
    const bool included =
        std::any_of(request_.include.begin(), request_.include.end(), [&](const PathInfo& path) {
            return isWholeTree(path) && coversLiterally(path, directory);
        });
    const auto leaves = [&](const PathInfo& path) { return cannotBeginIn(path, directory); };
    return included && isWholeTree(pathOf(pair_)) && request_.pairs.size() == 1 &&
           std::all_of(mountPoints_.begin(), mountPoints_.end(), leaves) &&
           request_.exclude.empty();
}

// Pairs are directories, each of exactly its name. But the lists take their paths for
// patterns: one whose name holds "*" or "?" would claim its neighbours.
int Extraction::coveringPair(const wchar_t* directory) const {
    const int pair = checkPathDriveListEx(directory, request_.pairs, mdLocalDriveGroup, true);
    if (pair < 0 || !checkWildCard(pathOf(pair).getPathName())) return pair;
    int longest = -1;
    for (int i = 0; i < static_cast<int>(request_.pairs.size()); ++i) {
        const PathInfo& path = pathOf(i);
        const bool longer = longest < 0 || std::wcslen(path.getPathName()) >
                                               std::wcslen(pathOf(longest).getPathName());
        if (longer && QueryPlan::isLocal(request_.pairs[static_cast<std::size_t>(i)]) &&
            coversLiterally(path, directory))
            longest = i;
    }
    return longest;
}

// Whether its files are wanted or, with `anyBelow`, may be of what lies below it.
bool Extraction::accepts(const wchar_t* directory, bool anyBelow) {
    const int pair = coveringPair(directory);
    if (pair != pair_) {
        pair_ = pair;
        mountPoints_.clear();
        if (pair >= 0)
            PathHelper::buildExcludeList(
                request_.drives, request_.pairs[static_cast<std::size_t>(pair)], mountPoints_);
    }
    return pair >= 0 && !checkPathList(directory, mountPoints_, true, false) &&
           checkPathList(directory, request_.include, true, false) &&
           !checkPathList(directory, request_.exclude, request_.caseSensitive,
                          anyBelow && pathOf(pair).getRecursive());
}

void Extraction::noteUndecided() {
    const RecordSet& files = store_.filesRecords();
    if (!scanObserver() || enter(files.getFieldAsInt32(FILES_PATHID)) != Directory::accepted)
        return;
    FsFileInfo record;
    record.setFilePath(prefix_.c_str());
    record.setFileName(files.getFieldAsString(FILES_FILENAME));
    record.setFileSize(files.getFieldAsInt64(FILES_SIZE));
    record.setFileAttr(files.getFieldAsInt32(FILES_ATTR));
    scanObserver()->undecided(record);
}

bool Extraction::hasTime() const {
    const unsigned elapsed = getCoarseTickCount() - startTick_;
    return static_cast<long long>(request_.timeout) - elapsed >= 1;
}

// Commands take as long as a walk, and longer: an observer hears of them, too, and may end
// the extraction.
bool Extraction::goesOn() {
    constexpr unsigned interval = 100;
    ++files_;
    FsScanObserver* const observer = scanObserver();
    const unsigned now = getCoarseTickCount();
    if (!observer || now - toldTick_ < interval) return true;
    toldTick_ = now;
    return observer->progress({chain_.path().c_str(), files_, 0, now - startTick_});
}

}  // namespace

int extractResults(CacheStore& store, CacheTree& tree, FsResultSetWriter& writer,
                   const ExtractionRequest& request) {
    if (request.include.empty()) {
        debug("FS_Cache::extractResults - no included paths specified!\n");
        return FS_CACHE_SUCCESS;
    }
    const auto extraction = std::make_unique<Extraction>(store, tree, writer, request);
    extraction->tellUnread();
    return extraction->run();
}

int tellUnread(CacheStore& store, CacheTree& tree, FsResultSetWriter& writer,
               const ExtractionRequest& request) {
    std::make_unique<Extraction>(store, tree, writer, request)->tellUnread();
    return FS_CACHE_SUCCESS;
}

}  // namespace fscanner
