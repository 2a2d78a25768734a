#include "fscanner/engine/cache_extract.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/engine/answer_gaps.h"
#include "fscanner/engine/cache_criteria.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/file_processor.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/platform/directory.h"
#include "fscanner/platform/paths.h"

namespace fscanner {

namespace {

constexpr unsigned kRefusedPerClock = 64;
// The fields of a file that change without its directory.
constexpr std::array<unsigned, 2> kFacts{FILES_SIZE, FILES_ATTR};

// One run over the files table.
class Extraction {
public:
    Extraction(CacheStore& store, FsResultSetWriter* writer, const ExtractionRequest& request)
        : store_(store),
          writer_(writer),
          request_(request),
          chain_(store),
          pathCommand_(store, chain_),
          exclusions_(request.exclude, request.caseSensitive),
          evaluator_(request.criteria ? request.criteria : L"", CriteriaRules::search),
          directory_(store.directories().schema()) {
        for (std::size_t i = 0; i < request.pairs.size(); ++i)
            if (QueryPlan::isLocal(request.pairs[i])) addPair(request.pairs[i], request.choices[i]);
        if (!pairs_.empty()) kinds_.kinds = request.choices.front().kinds;
    }
    Extraction(const Extraction&) = delete;
    Extraction& operator=(const Extraction&) = delete;
    ~Extraction();

    Status run();
    void tellUnread();

private:
    enum class Directory { accepted, refused, missing };
    struct Place {
        const PathDrive* pair;
        bool hasMounts;      // somewhere inside
        FsDepthRange depth;  // of the entries that are asked for
        std::size_t levels;  // of directories down to the pair's own
    };

    Status testFiles(const std::optional<std::vector<TreeMember>>& few);
    Status emitMatches();
    Status testAcceptedFiles();
    std::optional<std::vector<TreeMember>> smallTrees();
    Status testFilesOf(const std::vector<TreeMember>& directories);
    bool isOfKind();
    Status testDirectories(const std::optional<std::vector<TreeMember>>& few);
    Status testDirectory(unsigned record);
    Status testMountPoints();
    Status testEntry(const wchar_t* name, bool isMount);
    bool examineEntry(FsFileInfo& entry);
    inline void emit();
    Status finish();
    Status timedOut();
    Status interrupted();
    // Files of one directory come in runs: the verdict on the directory is kept for the run.
    Directory enter(unsigned pathId) {
        return pathId == pathId_ && pathId != 0 ? current_ : enterAnew(pathId);
    }
    Directory enterAnew(unsigned pathId);
    bool judge();
    bool refuseTooLong();
    bool isSearched();
    const Place* accepts(const wchar_t* directory, bool anyBelow = false);
    bool leavesOut(const wchar_t* directory, bool recursiveOnly);
    bool settlesBelow(const wchar_t* directory) const;
    void addPair(const PathDrive& pair, const EntryChoice& choice);
    bool hasDepth() const;
    const Place* coveringPair(const wchar_t* directory) const;
    bool holds();
    bool examines() const { return request_.examined != Examined::none; }
    bool examinedHolds();
    int examine(const wchar_t* name, struct stat& info);
    bool reads(const FieldKind& field) const { return evaluator_.readsField(field.name); }
    bool readsFacts() const { return reads(file_fields::kSize) || reads(file_fields::kAttributes); }
    bool lacksInfo(unsigned attributes) const;
    bool hasTime() const;
    bool hasTimeAt(Directory directory);
    bool goesOn();
    void noteUndecided();

    CacheStore& store_;
    FsResultSetWriter* writer_;  // null: nothing is extracted
    const ExtractionRequest& request_;
    DirectoryChain chain_;
    chPathCommand pathCommand_;
    chTypeCommand typeCommand_;
    ExclusionWatch exclusions_;
    CriteriaEvaluator evaluator_;
    Conditions conditions_;
    EntryChoice kinds_;
    bool filtered_ = false;
    bool runsCommands_ = false;
    std::unique_ptr<FsRecordFilter> ofDirectories_;  // the criteria; null: there is none
    DynamicBuffer<unsigned char> name_;
    unsigned startTick_ = 0;
    unsigned untilClock_ = 0;
    unsigned toldTick_ = 0;         // when the observer was last told of the progress
    unsigned long long files_ = 0;  // tested by commands so far
    unsigned pathId_ = 0;           // of the last directory seen
    Directory current_ = Directory::missing;
    std::map<std::wstring, Place, std::less<>> pairs_;  // the local ones, by path
    std::size_t shortestPair_ = std::wstring::npos;
    std::size_t longestPair_ = 0;
    std::size_t settledDepth_ = 0;  // level of the chain below which all is accepted; 0: none
    const Place* place_ = nullptr;  // of the directory that was accepted last
    std::wstring prefix_;
    std::vector<StoredValue> values_;  // of the directory at hand
    Fields directory_;                 // the same, decoded
    fscanner::Directory examined_;     // that of the file that was examined last
    unsigned examinedId_ = 0;          // its ID
    const std::size_t longestPath_ = longestPath();
    std::wstring tooLong_;  // the directory that the observer was told of last
};

// Leaves no pointer to the evaluator in the record set, and no command whose name would hide
// a variable.
Extraction::~Extraction() {
    store_.filesRecords().setCriteria(nullptr, true);
    clearCommands();
}

Status Extraction::run() {
    evaluator_.addCmd(L"path", STRING, NUMERIC, STRING, &pathCommand_);
    evaluator_.addCmd(L"type", NUMERIC, STRING, STRING, &typeCommand_);
    RecordSet& files = store_.filesRecords();
    files.setCriteria(&evaluator_, request_.criteriaCaseSensitive);
    filtered_ = request_.criteria && *request_.criteria;
    const bool compiles = filtered_ && evaluator_.compile();
    if (compiles)
        conditions_ = Conditions(evaluator_.tree(), store_.files().schema(),
                                 request_.criteriaCaseSensitive, Conditions::First::numbers);
    // A command costs much more than the test of a directory: `file` must not run over
    // the whole cache. So the record set delivers candidates, and the criteria is tested second.
    runsCommands_ = compiles && evaluator_.usesCommands();
    const bool namesFirst = request_.examined == Examined::candidates;
    if (namesFirst)
        files.stopAtCandidates(kFacts);
    else if (runsCommands_)
        files.stopAtCandidates({});
    else if (!examines())
        files.readLazily();
    if (scanObserver()) files.onUndecided([this] { noteUndecided(); });

    startTick_ = toldTick_ = getCoarseTickCount();
    const bool directories = kinds_.has(EntryType::directory) && (compiles || !filtered_);
    std::optional<std::vector<TreeMember>> few;
    if ((!examines() && !files.walksIndex()) || directories) few = smallTrees();
    Status status =
        (kinds_.kinds & FS_KINDS_BUT_DIRECTORIES) != 0 ? testFiles(few) : Status::success;
    if (status == Status::success && directories) status = testDirectories(few);
    return status == Status::success ? finish() : status;
}

Status Extraction::testFiles(const std::optional<std::vector<TreeMember>>& few) {
    RecordSet& files = store_.filesRecords();
    if (few && !examines() && !files.walksIndex()) return testFilesOf(*few);
    // A lookup uses few of the offsets. A run over all records must not miss one, so all
    // offsets are checked before the first record is written.
    const bool readsAll = !files.walksIndex();
    if (readsAll && !(store_.recordsHold() && store_.files().checkOffsets()))
        return Status::unusable;
    const bool stops = runsCommands_ || request_.examined == Examined::candidates;
    return stops ? testAcceptedFiles() : emitMatches();
}

Status Extraction::finish() {
    exclusions_.lookUpOthers(
        store_, [this](const wchar_t* directory) { return coveringPair(directory) != nullptr; });
    return Status::success;
}

// Directories that could not be read when the trees were built: their files, and all below
// them, are missing from the answer.
void Extraction::tellUnread() {
    FsScanObserver* const observer = scanObserver();
    if (!observer) return;
    for (const auto& [id, unread] : store_.unread().all())
        if (chain_.enter(id) && isSearched())
            observer->skipped(chain_.path().c_str(), unread.reason, unread.error);
}

// Whether the current directory, or one below it, is part of the search.
bool Extraction::isSearched() {
    const Place* const place = accepts(chain_.path().c_str(), true);
    return place && chain_.depth() - place->levels < place->depth.most;
}

// Whether the build could not examine the file at hand, and the criteria was tested on the size
// and attributes 0 that its record has instead.
bool Extraction::lacksInfo(unsigned attributes) const {
    return attributes == 0 && !examines() && store_.unread().contains(pathId_) &&
           store_.filesRecords().getFieldAsInt64(FILES_SIZE) == 0 && readsFacts();
}

void Extraction::emit() {
    const RecordSet& files = store_.filesRecords();
    const unsigned attributes = files.getFieldAsInt32(FILES_ATTR);
    if (lacksInfo(attributes)) return noteUndecided();
    writer_->addRecord(prefix_.c_str(), files.getFieldAsString(FILES_FILENAME),
                       files.getFieldAsInt64(FILES_SIZE), attributes);
}

// The record set delivers the matches: the directory of each is tested second.
Status Extraction::emitMatches() {
    RecordSet& files = store_.filesRecords();
    for (bool found = files.moveFirst(); found; found = files.moveNext()) {
        const Directory directory = enter(files.getFieldAsInt32(FILES_PATHID));
        if (!hasTimeAt(directory)) return timedOut();
        if (directory == Directory::missing) return interrupted();
        if (directory != Directory::accepted) continue;
        if ((!examines() || examinedHolds()) && isOfKind()) emit();
    }
    return Status::success;
}

// The record set delivers candidates: the criteria is tested last, with its commands.
Status Extraction::testAcceptedFiles() {
    RecordSet& files = store_.filesRecords();
    for (bool found = files.moveFirst(); found; found = files.moveNext()) {
        const Directory directory = enter(files.getFieldAsInt32(FILES_PATHID));
        if (directory == Directory::refused) continue;
        // With no path, the command "path" would not match, and the file be missed in silence.
        if (directory == Directory::missing) return interrupted();
        if (!goesOn()) return Status::queryTimedOut;
        if (!(examines() ? examinedHolds() : holds()) || !isOfKind()) continue;
        if (!hasTime()) return timedOut();
        emit();
    }
    return Status::success;
}

// The directories of all pairs, if they are few.
std::optional<std::vector<TreeMember>> Extraction::smallTrees() {
    CacheTree tree(store_);
    std::vector<TreeMember> all;
    for (const auto& [path, place] : pairs_) {
        RecordSet& record = store_.directoryRecords();
        const wchar_t* const name = place.pair->path.getPathName();
        if (!tree.findPathByName(record, store_.ancestorRecords(), name, true)) continue;
        const unsigned id = record.getFieldAsInt32(DIRECTORIES_ID);
        if (!place.pair->path.getRecursive()) {
            all.push_back({record.recordId(), id});
            continue;
        }
        const auto members = tree.smallTree(id);
        if (!members) return std::nullopt;
        all.insert(all.end(), members->begin(), members->end());
    }
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

// The files of these directories are looked up, and all others are not read.
Status Extraction::testFilesOf(const std::vector<TreeMember>& directories) {
    RecordSet& files = store_.filesRecords();
    for (const TreeMember& one : directories) {
        const Directory directory = enter(one.id);
        if (directory == Directory::missing) return interrupted();
        if (directory == Directory::refused) continue;
        bool found = store_.lookups().byPathId(files, one.id);
        for (; found; found = files.moveNext()) {
            if (!goesOn()) return Status::queryTimedOut;
            if ((!filtered_ || holds()) && isOfKind()) emit();
        }
    }
    return Status::success;
}

// By the stored attributes, which know of few kinds. The others are asked of the system. One that
// cannot be examined is left out: the observer is told of its directory, as of each that holds
// files which the build could not examine.
bool Extraction::isOfKind() {
    if (kinds_.hasAllFiles()) return true;
    const unsigned attributes = store_.filesRecords().getFieldAsInt32(FILES_ATTR);
    if ((attributes & FS_ATTR_REGULAR_FILE) != 0) return kinds_.has(EntryType::file);
    if ((attributes & FS_ATTR_SYMBOLIC_LINK) != 0) return kinds_.has(EntryType::link);
    if ((attributes & FS_ATTR_CHARACTER_DEVICE) != 0) return kinds_.has(EntryType::characterDevice);
    struct stat info {};
    const int error = examine(store_.filesRecords().getFieldAsString(FILES_FILENAME), info);
    return error == 0 && kinds_.has(entryTypeOf(info)) && !S_ISDIR(info.st_mode);
}

// ---- Directories ------------------------------------------------------------

Status Extraction::testDirectories(const std::optional<std::vector<TreeMember>>& few) {
    if (filtered_) {
        ofDirectories_ = FsRecordFilter::create(request_.criteria, request_.criteriaCaseSensitive);
        if (!ofDirectories_) return Status::success;
    }
    Status status = Status::success;
    if (few) {
        RecordSet& inside = store_.ancestorRecords();
        for (std::size_t i = 0; i < few->size(); ++i) {
            bool found = store_.lookups().byParentId(inside, (*few)[i].id);
            for (; found && status == Status::success; found = inside.moveNext())
                status = testDirectory(inside.recordId());
        }
    } else {
        FS_Table& directories = store_.directories();
        if (!directories.checkOffsets()) return Status::unusable;
        unsigned record = 0;
        bool found = directories.moveFirst(record);
        for (; found && status == Status::success; found = directories.moveNext(record))
            status = testDirectory(record);
    }
    return status == Status::success ? testMountPoints() : status;
}

// The name decides first, as it is stored: for most directories nothing else is read.
Status Extraction::testDirectory(unsigned record) {
    FS_Table& directories = store_.directories();
    if (!directories.locate(record, values_)) return interrupted();
    const auto parent = static_cast<unsigned>(values_[DIRECTORIES_PARENTID].number);
    const DirectoryReader reader(values_[DIRECTORIES_PATHNAME].text);
    if (parent == 0 || conditions_.judge(reader) == Verdict::noMatch) return Status::success;
    const Directory holder = enter(parent);
    if (!hasTimeAt(holder)) return timedOut();
    if (holder == Directory::missing) return interrupted();
    if (holder == Directory::refused) return Status::success;
    if (!directories.read(record, directory_)) return interrupted();
    return testEntry(directory_.as<TextField>(DIRECTORIES_PATHNAME)->view().data(), false);
}

// Mount points at which a search stops have no record of their own in the tree around them.
Status Extraction::testMountPoints() {
    for (const auto& [path, place] : pairs_) {
        if (!place.hasMounts) continue;
        for (const std::wstring& mount : request_.mounts.stopsInside(*place.pair)) {
            const std::wstring name = lastName(mount);
            const std::wstring holder = mount.substr(0, mount.size() - name.size());
            RecordSet& record = store_.directoryRecords();
            const std::wstring above(withoutFinalSeparator(holder));
            if (!CacheTree(store_).findPathByName(record, store_.ancestorRecords(),
                                                  above.empty() ? L"/" : above.c_str(), true))
                continue;
            const Directory found = enter(record.getFieldAsInt32(DIRECTORIES_ID));
            // Another pair may lie between: then it is a mount point of that one, or none.
            if (found != Directory::accepted || place_ != &place) continue;
            const Status status = testEntry(name.c_str(), true);
            if (status != Status::success) return status;
        }
    }
    return Status::success;
}

// An entry of the directory that was accepted last.
Status Extraction::testEntry(const wchar_t* name, bool isMount) {
    const std::wstring path = prefix_ + name;
    if (!request_.exclude.empty() && leavesOut(path.c_str(), true)) return Status::success;
    if (!isMount && place_->hasMounts && request_.mounts.stops(path, place_->pair->drive))
        return Status::success;
    FsFileInfo entry;
    entry.setFilePath(prefix_.c_str());
    entry.setFileName(name);
    entry.setFileAttr(FS_ATTR_DIRECTORY);
    if (filtered_ && (examines() || readsFacts())) {
        const DriveInfo* const drive = isMount ? request_.mounts.holding(path) : nullptr;
        if (drive && fsIsServed(*drive))
            entry.setError();
        else if (!examineEntry(entry))
            return Status::success;
    }
    if (runsCommands_ && !goesOn()) return Status::queryTimedOut;
    if (ofDirectories_ && !ofDirectories_->matches(entry)) {
        FsScanObserver* const observer = scanObserver();
        if (ofDirectories_->undecided() && observer) observer->undecided(entry);
        return Status::success;
    }
    constexpr unsigned attributes = 1;  // a bit of the mask
    if (entry.knownMask() != attributes)
        writer_->addRecord(entry);
    else
        writer_->addRecord(prefix_.c_str(), name, 0, FS_ATTR_DIRECTORY);
    return Status::success;
}

// False where the directory is gone.
bool Extraction::examineEntry(FsFileInfo& entry) {
    struct stat info {};
    const int error = examine(entry.getName(), info);
    if (error != 0 && skipReason(error) == FsSkipReason::vanished) return false;
    if (error != 0) {
        entry.setError();
        return true;
    }
    entry.forgetInfo();
    entry.updateFrom(info);
    return S_ISDIR(info.st_mode);
}

// ---- Facts ------------------------------------------------------------------

// A condition that fails decides, as in a scan, also where the evaluation could not.
bool Extraction::holds() {
    const FileReader file(store_.filesRecords(), name_);
    if (conditions_.judge(file) == Verdict::noMatch) return false;
    if (evaluator_.check(request_.criteriaCaseSensitive) > 0) return true;
    if (evaluator_.failedOnRecord()) noteUndecided();
    return false;
}

// Whether the criteria holds for the file as it is now; its record gets these facts. A file that is
// gone is no match.
bool Extraction::examinedHolds() {
    struct stat info {};
    const int error = examine(store_.filesRecords().getFieldAsString(FILES_FILENAME), info);
    if (error == ENOENT || error == ENOTDIR || error == ELOOP) return false;
    if (error == 0 && S_ISDIR(info.st_mode)) return false;
    const auto facts = error == 0 ? FileFacts::of(info) : std::nullopt;
    facts.value_or(FileFacts()).writeTo(store_.filesRecords());
    if (!facts) noteUndecided();
    return facts && holds();
}

// An entry of the directory that was accepted last, which stays open: most files lie in the same.
int Extraction::examine(const wchar_t* name, struct stat& info) {
    if (examinedId_ != pathId_ || !examined_.isOpen()) {
        examinedId_ = pathId_;
        const int error =
            examined_.openPath(toMultibyte(chain_.path()).c_str(), DirectoryUse::reach);
        if (error != 0) return error;
    }
    return examined_.statEntry(toMultibyte(name).c_str(), info);
}

Status Extraction::timedOut() {
    debug("FS_Cache::extractResults - timed out!\n");
    return Status::queryTimedOut;
}

Status Extraction::interrupted() {
    debug("FS_Cache::extractResults - findPathById() failed! extract interrupted!\n");
    store_.directories().reportDamage("a directory that is not there");
    return Status::unusable;
}

Extraction::Directory Extraction::enterAnew(unsigned pathId) {
    pathId_ = pathId;
    current_ = Directory::missing;
    if (chain_.enter(pathId)) current_ = judge() ? Directory::accepted : Directory::refused;
    return current_;
}

bool Extraction::judge() {
    if (chain_.kept() < settledDepth_) settledDepth_ = 0;
    if (chain_.path().size() > longestPath_) return refuseTooLong();
    if (settledDepth_ == 0) {
        const wchar_t* directory = chain_.path().c_str();
        const Place* const place = accepts(directory);
        if (!place) return false;
        place_ = place;
        if (settlesBelow(directory)) settledDepth_ = chain_.depth();
    }
    if (!hasDepth()) return false;
    prefix_ = chain_.path();
    endWithSeparator(prefix_);
    return true;
}

// Tells the observer, as a walk does, of the topmost directory whose path is too long.
bool Extraction::refuseTooLong() {
    const std::wstring topmost = chain_.topmostBeyond(longestPath_);
    if (topmost == tooLong_) return false;
    tooLong_ = topmost;
    FsScanObserver* const observer = scanObserver();
    if (observer && accepts(tooLong_.c_str()))
        observer->skipped(tooLong_.c_str(), FsSkipReason::tooLong, 0);
    return false;
}

// Whether everything below an accepted directory is accepted, too, and need not be tested:
// there is one recursive pair, no mount point further down and no exclusion.
bool Extraction::settlesBelow(const wchar_t* directory) const {
    return request_.pairs.size() == 1 && request_.pairs.front().path.getRecursive() &&
           !request_.mounts.hasInside(directory) && request_.exclude.empty();
}

// Whether entries of the directory, which lies in `place_`, have one of the depths asked for.
bool Extraction::hasDepth() const {
    const auto depth = static_cast<unsigned>(chain_.depth() - place_->levels + 1);
    return place_->depth.least <= depth && depth <= place_->depth.most;
}

void Extraction::addPair(const PathDrive& pair, const EntryChoice& choice) {
    const std::wstring path(withoutFinalSeparator(pair.path.getPathName()));
    shortestPair_ = std::min(shortestPair_, path.size());
    longestPair_ = std::max(longestPair_, path.size());
    pairs_.emplace(path, Place{&pair, request_.mounts.hasInside(path), choice.depth,
                               pathNames(pair.path.getPathName()).size()});
}

// The innermost pair that covers the directory. Often most directories of a cache lie in no
// pair; so only ancestors as long as some pair's path are looked up.
const Extraction::Place* Extraction::coveringPair(const wchar_t* directory) const {
    const std::wstring_view whole = withoutFinalSeparator(directory);
    const Place* place = nullptr;
    climb(whole, [&](std::wstring_view path) {
        if (path.size() < shortestPair_) return true;
        if (path.size() > longestPair_) return false;
        const auto found = pairs_.find(path);
        if (found == pairs_.end()) return false;
        if (path == whole || found->second.pair->path.getRecursive()) place = &found->second;
        return place != nullptr;
    });
    return place;
}

// The pair by which files of the directory are part of the answer. With `anyBelow`, also whether
// files further down may be. Null: they are not.
const Extraction::Place* Extraction::accepts(const wchar_t* directory, bool anyBelow) {
    const Place* const place = coveringPair(directory);
    const bool accepted = place &&
                          (!place->hasMounts || request_.mounts.reaches(*place->pair, directory)) &&
                          !leavesOut(directory, anyBelow && place->pair->path.getRecursive());
    return accepted ? place : nullptr;
}

bool Extraction::leavesOut(const wchar_t* directory, bool recursiveOnly) {
    if (!checkPathList(directory, request_.exclude, request_.caseSensitive, recursiveOnly))
        return false;
    exclusions_.met(directory);
    return true;
}

void Extraction::noteUndecided() {
    const RecordSet& files = store_.filesRecords();
    FsScanObserver* const observer = scanObserver();
    if (!observer || enter(files.getFieldAsInt32(FILES_PATHID)) != Directory::accepted) return;
    FsFileInfo record;
    record.setFilePath(prefix_.c_str());
    record.setFileName(files.getFieldAsString(FILES_FILENAME));
    record.setFileSize(files.getFieldAsInt64(FILES_SIZE));
    record.setFileAttr(files.getFieldAsInt32(FILES_ATTR));
    // Only a file that could not be examined has no attributes: the 0 of its size is none either.
    if (files.getFieldAsInt32(FILES_ATTR) == 0) record.setError();
    observer->undecided(record);
}

bool Extraction::hasTime() const {
    const unsigned elapsed = getCoarseTickCount() - startTick_;
    return static_cast<long long>(request_.timeout) - elapsed >= 1;
}

// Matches in refused directories cost less than reading the clock: it is read for one in
// `kRefusedPerClock` of them.
bool Extraction::hasTimeAt(Directory directory) {
    if (directory == Directory::refused && untilClock_-- != 0) return true;
    untilClock_ = kRefusedPerClock;
    return hasTime();
}

// Commands may take longer than a walk: the time is checked before each, and an observer is
// told of the progress and may end the extraction.
bool Extraction::goesOn() {
    constexpr unsigned interval = 100;
    ++files_;
    if (!hasTime()) return false;
    FsScanObserver* const observer = scanObserver();
    const unsigned now = getCoarseTickCount();
    if (!observer || now - toldTick_ < interval) return true;
    toldTick_ = now;
    return observer->progress({chain_.path().c_str(), files_, 0, now - startTick_});
}

}  // namespace

Status extractResults(CacheStore& store, FsResultSetWriter* writer,
                      const ExtractionRequest& request) {
    if (std::none_of(request.pairs.begin(), request.pairs.end(), QueryPlan::isLocal)) {
        debug("FS_Cache::extractResults - no included paths specified!\n");
        return Status::success;
    }
    const auto extraction = std::make_unique<Extraction>(store, writer, request);
    extraction->tellUnread();
    return extraction->run();
}

void tellUnread(CacheStore& store, const ExtractionRequest& request) {
    std::make_unique<Extraction>(store, nullptr, request)->tellUnread();
}

}  // namespace fscanner
