#include "fscanner/engine/walk.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cwchar>
#include <memory>
#include <optional>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/discovery/filesystemhelper.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/platform/paths.h"

// The walk keeps one Level for each directory from the start to the current directory. So
// depth costs heap memory, and no stack. A directory is read as a whole when it is entered. Its
// entries are then visited from the last to the first.
//
// Only the deepest levels keep their descriptor open. When the walk returns to a level whose
// descriptor was closed, it opens ".." of the directory that it leaves, and compares device and
// inode: the directory may have been moved. This costs the same at any depth; opening the path
// would cost more the deeper the level is, and fails for paths beyond PATH_MAX.

namespace fscanner {

namespace {

// How many levels keep their descriptor open. Above these, returning to a level costs one open.
constexpr std::size_t kOpenLevels = 16;
// Large enough for the entries of all but the largest directories in one getdents64 call.
constexpr std::size_t kReadBuffer = 64 * 1024;
constexpr unsigned kEntriesPerProgress = 1024;
// The clock is also read within a directory, because testing a million files takes long. It is the
// coarse clock, which is cheap.
constexpr unsigned kEntriesPerClock = 64;

static_assert(static_cast<unsigned>(EntryType::file) == FS_KIND_FILE &&
              static_cast<unsigned>(EntryType::directory) == FS_KIND_DIRECTORY &&
              static_cast<unsigned>(EntryType::link) == FS_KIND_LINK &&
              static_cast<unsigned>(EntryType::pipe) == FS_KIND_PIPE &&
              static_cast<unsigned>(EntryType::socket) == FS_KIND_SOCKET &&
              static_cast<unsigned>(EntryType::blockDevice) == FS_KIND_BLOCK_DEVICE &&
              static_cast<unsigned>(EntryType::characterDevice) == FS_KIND_CHARACTER_DEVICE);

struct Level {
    ReadAhead::Branch branch;
    Directory::Identity identity;
    std::size_t pathLength = 0;  // of the path with its final "/"
    unsigned long long number = 0;
    long long timeLeft = 0;
    unsigned startTick = 0;
    bool reports = false;
    bool linked = false;      // reached through a link
    bool incomplete = false;  // an unexamined file was reported; done once for a directory

    Directory& directory() { return branch.read.directory; }
    const Directory& directory() const { return branch.read.directory; }
    DirectoryEntries& entries() { return branch.read.entries; }
};

// Other drives and excluded directories are not touched, also not ahead of the walk.
class Rules : public AheadRules {
public:
    Rules(const WalkRequest& request, const MountMap* mounts)
        : request_(request), mounts_(mounts) {}

    bool needsPaths() const override { return mounts_ || !request_.exclude.empty(); }
    bool mayRead(const std::wstring& path) const override {
        return !(mounts_ && mounts_->stops(path, request_.drive)) &&
               !checkPathList(path.c_str(), request_.exclude, request_.caseSensitive, true);
    }

private:
    const WalkRequest& request_;
    const MountMap* mounts_;
};

}  // namespace

FsSkipReason skipReason(int error) {
    switch (error) {
        case EACCES:
        case EPERM:
            return FsSkipReason::denied;
        case ENOENT:
        case ENOTDIR:
        case ELOOP:
        case ESTALE:
            return FsSkipReason::vanished;
        default:
            return FsSkipReason::failed;
    }
}

const std::wstring& WalkEntry::name() const {
    if (!widened_) {
        name_.clear();
        appendWide(name_, entry_.name);
        widened_ = true;
    }
    return name_;
}

const struct stat* WalkEntry::info() {
    if (examined_ == Examined::no) {
        error_ = open_->statEntry(nameBytes(), info_);
        examined_ = error_ == 0 ? Examined::yes : Examined::failed;
    }
    return examined_ == Examined::yes ? &info_ : nullptr;
}

// The entry becomes what its link leads to, unless that is nothing.
void WalkEntry::follow() {
    if (entry_.type != EntryType::link && entry_.type != EntryType::unknown) return;
    if (open_->statTarget(nameBytes(), info_) != 0) return;
    examined_ = Examined::yes;
    entry_.type = entryTypeOf(info_);
    followed_ = true;
}

// Some file systems give no type with the entry (DT_UNKNOWN): then the entry is examined.
void WalkEntry::settleType() {
    if (entry_.type != EntryType::unknown) return;
    if (const struct stat* const examined = info()) entry_.type = entryTypeOf(*examined);
}

// A worker may have examined the entry.
void WalkEntry::takeFacts(ReadDirectory& read) {
    if (read.factsTaken == read.facts.size() || isDirectory()) return;
    const EntryFacts& facts = read.facts[read.factsTaken++];
    examined_ = facts.error == 0 ? Examined::yes : Examined::failed;
    error_ = facts.error;
    info_ = facts.info;
}

class Walk {
public:
    Walk(const WalkRequest& request, WalkSink& sink, const LogPrefix& log)
        : request_(request),
          sink_(sink),
          log_(log),
          observer_(request.report == WalkReport::nothing ? nullptr : scanObserver()),
          mounts_(request.mounts && request.mounts->hasInside(request.path) ? request.mounts
                                                                            : nullptr),
          links_(request.links == FsLinks::leave ? LinkUse::refuse : LinkUse::follow),
          rules_(request, mounts_) {
        readAhead();
    }

    WalkStatus run();
    void finish();

private:
    enum class Entered { yes, skipped, timedOut };

    void readAhead();
    Level& top() { return *levels_[depth_ - 1]; }
    Level& push();
    Entered enter(const Level* parent, long long timeout);
    int openLevel(const Level* parent, Directory& directory);
    int read(const Level* parent, Level& level);
    int identify(const Level* parent, Level& level) const;
    bool closeShallowest();
    void logUnreadable() const;
    static int verifyIdentity(Level& level, int error);
    void reopen(Level& level, Directory& child);
    bool isTooLong() const { return path_.size() > longest_; }
    void leave();
    void load(const DirectoryEntries::Entry& entry);
    WalkStatus visit();
    void report();
    bool isAsked();
    void reportDirectory(bool isMount);
    bool isServed() const;
    bool isCycle();
    bool isElsewhere();
    bool isLinkedElsewhere(const struct stat& info);
    bool isHeldBy(const Directory::Identity& identity) const;
    WalkStatus visitDirectory();
    WalkStatus passDirectory();
    WalkStatus descend();
    bool canRead(const Level* parent, Level& level);
    void close(Level& level);
    bool excludes(const wchar_t* path, bool recursiveOnly) const;
    void noteSkipped(FsSkipReason reason, int error);
    void noteUnexamined();
    bool isOtherDrive() const { return mounts_ && mounts_->stops(path_, request_.drive); }
    bool keepGoing();
    long long timeLeft();
    FsScanProgress progressAt(const wchar_t* directory) const;

    const WalkRequest& request_;
    WalkSink& sink_;
    const LogPrefix& log_;
    FsScanObserver* observer_;
    const MountMap* mounts_;  // null if no mount point lies below the start
    const LinkUse links_;
    std::vector<std::unique_ptr<Level>> levels_;  // levels from depth_ on are kept for reuse
    std::size_t depth_ = 0;
    std::size_t firstOpen_ = 0;  // the levels before this one have no open descriptor
    std::size_t longest_ = longestPath();
    std::wstring path_;  // the current directory, with its final "/" once entered
    WalkEntry entry_;
    unsigned long long directories_ = 0;
    unsigned long long files_ = 0;
    unsigned untilClock_ = kEntriesPerClock;
    unsigned untilProgress_ = kEntriesPerProgress / kEntriesPerClock;
    unsigned startTick_ = getTickCount();
    std::array<char, kReadBuffer> buffer_;
    Rules rules_;
    std::optional<ReadAhead> ahead_;   // where the host has workers
    ReadAhead::Node* node_ = nullptr;  // of the directory to be entered
};

// Links lead to directories that the walk must know before.
void Walk::readAhead() {
    FsWorkers* const workers = scanWorkers();
    if (!workers || !request_.ahead.wanted || !request_.recursive || links_ == LinkUse::follow)
        return;
    AheadWork work = request_.ahead;
    work.deepest = request_.choice.depth.most;
    ahead_.emplace(*workers, work, rules_);
}

WalkStatus Walk::run() {
    path_ = request_.path;
    const Entered entered = enter(nullptr, request_.timeoutMilliseconds);
    if (entered != Entered::yes)
        return entered == Entered::timedOut ? WalkStatus::timedOut : WalkStatus::finished;
    DirectoryEntries::Entry entry;
    while (depth_ > 0) {
        if (!top().entries().takeLast(entry)) {
            leave();
            continue;
        }
        load(entry);
        if (visit() == WalkStatus::timedOut) return WalkStatus::timedOut;
    }
    return WalkStatus::finished;
}

Level& Walk::push() {
    if (depth_ == levels_.size()) levels_.push_back(std::make_unique<Level>());
    return *levels_[depth_++];
}

// Enters the directory `path_`, which has no final "/" yet.
Walk::Entered Walk::enter(const Level* parent, long long timeout) {
    if (timeout < 1 || !sink_.goesOn()) return Entered::timedOut;
    if (isTooLong()) {
        debug("%s - path too long\n", log_.text);
        noteSkipped(FsSkipReason::tooLong, 0);
        return Entered::skipped;
    }
    const bool written = dfsWritesFiles(path_.c_str(), request_.drive, log_.text, *log_.dfs);
    Level& level = push();
    const bool known = canRead(parent, level);
    if (!known && read(parent, level) != 0) {
        level.directory().close();
        --depth_;
        return Entered::skipped;
    }
    level.timeLeft = timeout;
    level.startTick = getCoarseTickCount();
    level.number = ++directories_;
    level.incomplete = false;
    level.linked = parent && (parent->linked || entry_.followed_);
    const bool included = request_.include.empty() || checkPathList(path_.c_str(), request_.include,
                                                                    request_.caseSensitive, false);
    level.reports = written && included && !excludes(path_.c_str(), false);
    endWithSeparator(path_);
    level.pathLength = path_.size();
    if (ahead_ && !known) {
        level.branch.depth = depth_;
        if (rules_.needsPaths()) level.branch.path = path_;
        ahead_->begin(level.branch);
    }
    return Entered::yes;
}

// Whether a worker has read the directory.
bool Walk::canRead(const Level* parent, Level& level) {
    if (!parent || !node_ || !ahead_->take(*std::exchange(node_, nullptr), level.branch))
        return false;
    if (depth_ > kOpenLevels) closeShallowest();
    sink_.opened(level.directory(), &level.branch.read.stamp);
    return true;
}

int Walk::read(const Level* parent, Level& level) {
    level.branch.read.facts.clear();
    level.branch.read.factsTaken = 0;
    int error = openLevel(parent, level.directory());
    if (error == 0 && links_ == LinkUse::follow) error = identify(parent, level);
    if (error == 0) {
        sink_.opened(level.directory(), nullptr);
        error = level.directory().read(level.entries(), buffer_);
    }
    if (error == 0) return 0;
    logUnreadable();
    noteSkipped(skipReason(error), error);
    return error;
}

// Where links are followed, the opened directory must be the one that was examined.
int Walk::identify(const Level* parent, Level& level) const {
    const int error = level.directory().identify(level.identity);
    if (error != 0 || !parent || entry_.examined_ != WalkEntry::Examined::yes) return error;
    const Directory::Identity examined{entry_.info_.st_dev, entry_.info_.st_ino};
    return level.identity == examined ? 0 : ENOENT;
}

void Walk::logUnreadable() const {
    debug("%s - scandir error opening '%ls' path!\n", log_.text, path_.c_str());
}

int Walk::openLevel(const Level* parent, Directory& directory) {
    if (depth_ > kOpenLevels) closeShallowest();
    for (;;) {
        const int error = parent ? directory.openChild(parent->directory(), entry_.nameBytes(),
                                                       DirectoryUse::list, links_)
                                 : directory.openPath(toMultibyte(path_).c_str());
        if (error != EMFILE) return error;
        const bool gaveBack = ahead_ && ahead_->giveBack();
        if (!gaveBack && !closeShallowest()) return error;
    }
}

// Closes the descriptor of the shallowest level that has one. The two deepest levels keep theirs:
// one is being opened relative to the other. False if there is none to close.
bool Walk::closeShallowest() {
    while (firstOpen_ + 2 < depth_) {
        Level& level = *levels_[firstOpen_++];
        if (!level.directory().isOpen() || level.directory().identify(level.identity) != 0)
            continue;
        close(level);
        return true;
    }
    return false;
}

// Nothing can be opened relative to it any more.
void Walk::close(Level& level) {
    if (ahead_)
        ahead_->close(level.branch);
    else
        level.directory().close();
}

// Checks that the descriptor just opened for a level, with the result `error`, is that of the same
// directory as before. Closes it otherwise. 0, or an errno.
int Walk::verifyIdentity(Level& level, int error) {
    Directory::Identity now;
    if (error == 0) error = level.directory().identify(now);
    if (error == 0 && now != level.identity) error = ENOENT;
    if (error != 0) level.directory().close();
    return error;
}

// Opens a level again, as the parent of `child`. If `child` was moved while the walk was in it, its
// parent is another directory, and the level is opened by its path instead.
void Walk::reopen(Level& level, Directory& child) {
    if (child.isOpen() && verifyIdentity(level, level.directory().openParent(child)) == 0) return;
    child.close();
    // All entries were visited, so the descriptor is not needed.
    if (level.entries().empty()) return;
    const int opened =
        level.directory().openPath(toMultibyte(path_).c_str(), DirectoryUse::list, links_);
    const int error = verifyIdentity(level, opened);
    if (error == 0) return;
    level.entries().clear();
    logUnreadable();
    noteSkipped(skipReason(error), error);
}

void Walk::leave() {
    Level& left = top();
    left.entries().clear();
    if (--depth_ > 0) {
        sink_.leave();
        Level& level = top();
        path_.resize(level.pathLength);
        if (!level.directory().isOpen()) {
            reopen(level, left.directory());
            firstOpen_ = std::min(firstOpen_, depth_ - 1);
        }
    }
    if (ahead_)
        ahead_->end(left.branch);
    else
        left.directory().close();
}

void Walk::load(const DirectoryEntries::Entry& entry) {
    entry_.entry_ = entry;
    entry_.directory_ = &path_;
    entry_.open_ = &top().directory();
    entry_.directoryNumber_ = top().number;
    entry_.examined_ = WalkEntry::Examined::no;
    entry_.widened_ = false;
    entry_.followed_ = false;
    entry_.takeFacts(top().branch.read);
}

WalkStatus Walk::visit() {
    if (entry_.entry_.name.empty()) {
        debug("%s - file name len is 0. file skipped!\n", log_.text);
        return WalkStatus::finished;
    }
    if (--untilClock_ == 0 && !keepGoing()) return WalkStatus::timedOut;
    if (links_ == LinkUse::follow) entry_.follow();
    entry_.settleType();
    if (entry_.isDirectory()) return visitDirectory();
    ++files_;
    report();
    return WalkStatus::finished;
}

void Walk::report() {
    if (!top().reports) return;
    if (isAsked()) sink_.file(entry_);
    if (entry_.error() != 0) noteUnexamined();
}

// An entry that cannot be examined, and whose type nobody tells, counts as a file of some kind.
bool Walk::isAsked() {
    const EntryType type = entry_.entry_.type;
    const bool ofKind =
        type == EntryType::unknown ? request_.choice.hasAllFiles() : request_.choice.has(type);
    return ofKind && request_.choice.has(static_cast<unsigned>(depth_));
}

WalkStatus Walk::visitDirectory() {
    node_ = ahead_ ? ahead_->find(top().branch, entry_.entry_.name) : nullptr;
    const WalkStatus status = passDirectory();
    if (node_) ahead_->drop(*std::exchange(node_, nullptr));
    return status;
}

WalkStatus Walk::passDirectory() {
    const bool entered = request_.recursive && depth_ < request_.choice.depth.most;
    if (!entered && !request_.choice.has(EntryType::directory)) return WalkStatus::finished;
    path_ += entry_.name();
    const bool tooLong = isTooLong();
    const bool other = !tooLong && isOtherDrive();
    const bool excluded = !tooLong && excludes(path_.c_str(), true);
    if (other || excluded) {
        debug("%s - path '%ls' excluded!\n", log_.text, path_.c_str());
        noteSkipped(other ? FsSkipReason::otherFileSystem : FsSkipReason::excluded, 0);
    }
    const bool left = excluded || isCycle();
    if (!left) reportDirectory(other);
    if (!left && !other && entered && sink_.wants(entry_, path_) && !isElsewhere()) {
        if (!tooLong) return descend();
        debug("%s - path too long!\n", log_.text);
        sink_.enter(entry_);
        noteSkipped(FsSkipReason::tooLong, 0);
        sink_.leave();
    }
    path_.resize(top().pathLength);
    return WalkStatus::finished;
}

// `path_` is that of the directory itself, and that of the one which holds it during the report.
void Walk::reportDirectory(bool isMount) {
    if (!request_.choice.has(EntryType::directory)) return;
    if (isMount && isServed()) entry_.examined_ = WalkEntry::Examined::never;
    path_.resize(top().pathLength);
    report();
    path_ += entry_.name();
}

bool Walk::isServed() const {
    const DriveInfo* const drive = mounts_->holding(path_);
    return drive && fsIsServed(*drive);
}

// The time left, in milliseconds. Each level counts from the time left when it was entered.
long long Walk::timeLeft() {
    const Level& level = top();
    return level.timeLeft - (getCoarseTickCount() - level.startTick);
}

WalkStatus Walk::descend() {
    Level& level = top();
    const long long left = timeLeft();
    sink_.enter(entry_);
    const Entered entered = enter(&level, left);
    if (entered == Entered::timedOut) return WalkStatus::timedOut;
    if (entered == Entered::skipped) {
        sink_.leave();
        path_.resize(level.pathLength);
    }
    return WalkStatus::finished;
}

// Whether the directory is one that holds it, reached again through a link.
bool Walk::isCycle() {
    if (!entry_.followed_ && !top().linked) return false;
    const struct stat* const info = entry_.info();
    if (!info || !isHeldBy({info->st_dev, info->st_ino})) return false;
    noteSkipped(FsSkipReason::cycle, ELOOP);
    return true;
}

// Whether the directory is on a file system that the search leaves out. Without links, the mount
// points told so before.
bool Walk::isElsewhere() {
    if (links_ == LinkUse::refuse) return false;
    if (!request_.oneFileSystem && !entry_.followed_ && !top().linked) return false;
    const struct stat* const info = entry_.info();
    if (!info) return false;
    const bool elsewhere = request_.oneFileSystem ? info->st_dev != levels_.front()->identity.device
                                                  : isLinkedElsewhere(*info);
    if (elsewhere) noteSkipped(FsSkipReason::otherFileSystem, 0);
    return elsewhere;
}

bool Walk::isLinkedElsewhere(const struct stat& info) {
    if (!request_.entersLinked || info.st_dev == top().identity.device) return false;
    Directory directory;
    if (directory.openChild(top().directory(), entry_.nameBytes(), DirectoryUse::reach, links_) !=
        0)
        return false;
    const std::string path = directory.realPath();
    return !path.empty() && !request_.entersLinked(toWide(path));
}

// Whether that is the current directory or one that holds it.
bool Walk::isHeldBy(const Directory::Identity& identity) const {
    const auto last = levels_.begin() + static_cast<std::ptrdiff_t>(depth_);
    return std::any_of(levels_.begin(), last,
                       [&](const auto& level) { return level->identity == identity; });
}

bool Walk::excludes(const wchar_t* path, bool recursiveOnly) const {
    return checkPathList(path, request_.exclude, request_.caseSensitive, recursiveOnly);
}

void Walk::noteSkipped(FsSkipReason reason, int error) {
    if (!sink_.tellsLater(reason, error) && observer_)
        observer_->skipped(path_.c_str(), reason, error);
}

// Reports the current directory as incomplete: without its attributes, a file may be missed by the
// criteria. A file that has vanished is no gap.
void Walk::noteUnexamined() {
    const FsSkipReason reason = skipReason(entry_.error());
    if (top().incomplete || reason == FsSkipReason::vanished) return;
    top().incomplete = true;
    noteSkipped(reason, entry_.error());
}

bool Walk::keepGoing() {
    untilClock_ = kEntriesPerClock;
    if (timeLeft() < 1 || !sink_.goesOn()) return false;
    if (!observer_ || --untilProgress_ > 0) return true;
    untilProgress_ = kEntriesPerProgress / kEntriesPerClock;
    return observer_->progress(progressAt(path_.c_str()));
}

void Walk::finish() {
    if (observer_ && request_.report == WalkReport::whole)
        observer_->finished(progressAt(request_.path));
}

FsScanProgress Walk::progressAt(const wchar_t* directory) const {
    return {directory, files_, directories_, getTickCount() - startTick_,
            request_.expectedDirectories};
}

WalkStatus walkTree(const WalkRequest& request, WalkSink& sink, const LogPrefix& log) {
    const auto walk = std::make_unique<Walk>(request, sink, log);
    const WalkStatus status = walk->run();
    walk->finish();
    return status;
}

}  // namespace fscanner
