#include "fscanner/engine/cache_verify.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <optional>

#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/engine/cache_tree.h"
#include "fscanner/engine/examine_ahead.h"

// The records of directories are met in the order of storage, which is that of their IDs: a
// directory comes behind the one that holds it, and mostly in the order of the walk that built
// the tree. So there is a chain of levels from the root down to the last directory, and the next
// one mostly belongs to one of them. One that does not was inserted later: it waits until the
// end, and is then reached by its path.
//
// A level is opened when the first directory in it is looked at. Most directories hold no other,
// and cost one call.
//
// With workers, records are read ahead in batches. A second chain, of all directories that the
// records tell of, gives the paths by which tasks reach them. What the tasks did not find out, for
// whatever reason, is looked at as without them.

namespace fscanner {

namespace {

using State = StaleDirectory::State;

// The deepest levels whose descriptors stay open; those above are opened again from the root.
constexpr std::size_t kOpenLevels = 16;
// So many directories are looked at before the caller is asked whether to go on.
constexpr unsigned kPerQuestion = 256;

struct Level {
    unsigned id = 0;
    std::string name;
    Directory directory;
};

/// Null where none lies inside the tree.
const MountMap* mountsInside(const TreeView& view) {
    return view.mounts.hasInside(view.root.path.getPathName()) ? &view.mounts : nullptr;
}

bool isAbsent(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

/// The records of the directories of a tree but for its root, in the order of storage.
class TreeRecords {
public:
    TreeRecords(CacheStore& store, const TreeView& view);

    void begin(unsigned rootId, unsigned record);
    /// Adds the next records. False at the end, or where one is damaged.
    bool read(ExamineBatch& batch);
    bool damaged() const { return damaged_; }
    /// Decodes one.
    bool decode(unsigned record, KnownDirectory& directory);

private:
    struct Step {
        unsigned id;
        std::size_t length;      // of the path
        std::size_t wideLength;  // of the wide one
    };
    bool moveNext();
    bool enterParent(unsigned parent);
    void place(ExamineBatch& batch);

    CacheStore& store_;
    const PathDrive& root_;
    const MountMap* mounts_;  // null where none lies inside
    const unsigned levels_;
    std::optional<std::vector<TreeMember>> small_;
    std::size_t position_ = 0;
    unsigned record_ = 0;
    unsigned rootId_ = 0;
    bool damaged_ = false;
    std::vector<StoredValue> values_;
    // From the root to the last directory.
    std::vector<Step> steps_;
    std::string path_;   // relative, with a final "/"
    std::wstring wide_;  // absolute, likewise; only where there are mounts
};

class TreeVerification {
public:
    TreeVerification(CacheStore& store, const TreeView& view)
        : store_(store),
          root_(view.root),
          mounts_(mountsInside(view)),
          records_(store, view),
          goesOn_(view.goesOn),
          wanted_(view.levels),
          chain_(store) {}

    Verification run(unsigned rootId);

private:
    bool enterRoot(unsigned id);
    bool hasStamps(unsigned id);
    bool mayGoOn();
    bool verifyBelow();
    void visit();
    bool isInside(unsigned id) const {
        return std::binary_search(inside_.begin(), inside_.end(), id);
    }
    std::size_t depthOf(unsigned id) const;
    void push();
    const Directory* open(std::size_t level);
    bool look(const Directory* parent);
    bool judge(const Directory* parent, int error, const struct stat& info);
    const StampTrust* trustAt(const Directory* parent, const struct stat& info);
    bool isCovered(const std::wstring& directory) const {
        return mounts_ && mounts_->stops(directory, root_.drive);
    }
    void note(State state) { result_.stale.push_back({.id = at_.id, .state = state}); }
    void noteCovered();
    void compare(const struct stat& info, const StampTrust* trust);
    void visitLate();
    bool visitByPath();

    CacheStore& store_;
    const PathDrive& root_;
    const MountMap* mounts_;  // null where none lies inside
    TreeRecords records_;
    const GoesOn& goesOn_;
    unsigned wanted_;       // levels
    unsigned visited_ = 0;  // records
    DirectoryChain chain_;
    Verification result_;
    const StampTrust* trust_ = nullptr;
    dev_t device_ = 0;                            // the root's
    std::map<dev_t, const StampTrust*> others_;   // of the drives inside
    std::vector<std::unique_ptr<Level>> levels_;  // those beyond depth_ are spare
    std::size_t depth_ = 0;
    std::vector<unsigned> inside_;
    std::vector<unsigned> late_;  // records
    KnownDirectory at_;           // the one at hand
};

// ---- Records ----------------------------------------------------------------

TreeRecords::TreeRecords(CacheStore& store, const TreeView& view)
    : store_(store), root_(view.root), mounts_(mountsInside(view)), levels_(view.levels) {}

void TreeRecords::begin(unsigned rootId, unsigned record) {
    rootId_ = rootId;
    record_ = record;
    small_ = CacheTree(store_).smallTree(rootId);
    if (mounts_) {
        wide_ = root_.path.getPathName();
        endWithSeparator(wide_);
    }
    steps_ = {{rootId, 0, wide_.size()}};
}

bool TreeRecords::moveNext() {
    if (!small_) return store_.directories().moveNext(record_);
    if (++position_ == small_->size()) return false;
    record_ = (*small_)[position_].record;
    return true;
}

bool TreeRecords::read(ExamineBatch& batch) {
    while (!batch.isFull()) {
        if (damaged_ || !moveNext()) return false;
        KnownDirectory& directory = batch.directories.emplace_back();
        if (!decode(record_, directory)) {
            damaged_ = true;
            batch.directories.pop_back();
        } else if (directory.parent < rootId_) {
            batch.directories.pop_back();
        } else {
            place(batch);
        }
    }
    return true;
}

bool TreeRecords::decode(unsigned record, KnownDirectory& directory) {
    if (!store_.directories().locate(record, values_)) return false;
    directory.record = record;
    directory.id = static_cast<unsigned>(values_[DIRECTORIES_ID].number);
    directory.parent = static_cast<unsigned>(values_[DIRECTORIES_PARENTID].number);
    directory.name = values_[DIRECTORIES_PATHNAME].text;
    if (isAscii(directory.name)) return true;
    Fields decoded(store_.directories().schema());
    if (!store_.directories().read(record, decoded)) return false;
    directory.name = toMultibyte(decoded.as<TextField>(DIRECTORIES_PATHNAME)->view());
    return true;
}

// Makes the parent the last step. False where it is none.
bool TreeRecords::enterParent(unsigned parent) {
    const auto step = std::find_if(steps_.rbegin(), steps_.rend(),
                                   [parent](const Step& one) { return one.id == parent; });
    if (step == steps_.rend()) return false;
    steps_.erase(step.base(), steps_.end());
    path_.resize(steps_.back().length);
    wide_.resize(steps_.back().wideLength);
    return true;
}

// The last directory of the batch is examined ahead where it will be looked at. Not where another
// drive is: whoever touches that may wait for its server.
void TreeRecords::place(ExamineBatch& batch) {
    KnownDirectory& directory = batch.directories.back();
    if (!enterParent(directory.parent) || steps_.size() >= levels_) return;
    if (mounts_) {
        wide_ += toWide(directory.name);
        directory.covered = mounts_->stops(wide_, root_.drive);
        if (directory.covered) return;
        wide_ += L'/';
    }
    batch.allowLast(path_);
    path_.append(directory.name) += '/';
    steps_.push_back({directory.id, path_.size(), wide_.size()});
}

// ---- Directories ------------------------------------------------------------

Verification TreeVerification::run(unsigned rootId) {
    RecordSet& records = store_.directoryRecords();
    if (!store_.lookups().byId(records, rootId)) {
        result_.end = Verification::End::damaged;
        return std::move(result_);
    }
    const unsigned record = records.recordId();
    if (!enterRoot(rootId) || !root_.path.getRecursive() || wanted_ == 1) return std::move(result_);
    records_.begin(rootId, record);
    if (verifyBelow()) visitLate();
    return std::move(result_);
}

// False when the caller stopped it, or a record is damaged.
bool TreeVerification::verifyBelow() {
    ExamineAhead ahead(levels_[0]->directory);
    bool more = true;
    while (true) {
        while (more && ahead.hasRoom()) {
            auto batch = std::make_shared<ExamineBatch>();
            more = records_.read(*batch);
            if (!batch->directories.empty()) ahead.add(std::move(batch));
        }
        if (ahead.empty()) break;
        const std::shared_ptr<ExamineBatch> batch = ahead.take();
        for (KnownDirectory& directory : batch->directories) {
            if (!mayGoOn()) return false;
            at_ = std::move(directory);
            if (const std::size_t depth = depthOf(at_.parent); depth > 0) {
                depth_ = depth;
                if (depth < wanted_) visit();
            } else if (isInside(at_.parent)) {
                inside_.push_back(at_.id);
                late_.push_back(at_.record);
            }
        }
    }
    if (records_.damaged()) result_.end = Verification::End::damaged;
    return !records_.damaged();
}

// False when that ends it.
bool TreeVerification::enterRoot(unsigned id) {
    at_.id = id;
    at_.name = toMultibyte(root_.path.getPathName());
    push();
    Directory& directory = levels_[0]->directory;
    ++result_.directories;
    const int error = directory.openPath(at_.name.c_str(), DirectoryUse::reach);
    std::uint32_t type = 0;
    struct stat info {};
    if (error != 0 || directory.examine(info) != 0 || directory.fileSystemType(type) != 0) {
        note(State::gone);
        return false;
    }
    trust_ = findStampTrust(type);
    device_ = info.st_dev;
    if (!trust_) {
        if (hasStamps(id))
            note(State::gone);
        else
            result_.end = Verification::End::notTrusted;
        return false;
    }
    compare(info, trust_);
    return true;
}

// Whether the directory or one in it has a stamp. On a file system without trust none has, but for
// drives that are mounted there: the tree is that of another one, which was there before.
bool TreeVerification::hasStamps(unsigned id) {
    const auto has = [this](unsigned one) { return store_.stamps().find(one).exists(); };
    std::wstring path = root_.path.getPathName();
    endWithSeparator(path);
    RecordSet& records = store_.directoryRecords();
    bool found = store_.lookups().byParentId(records, id);
    bool stamped = has(id);
    for (; found && !stamped; found = records.moveNext())
        stamped = has(records.getFieldAsInt32(DIRECTORIES_ID)) &&
                  !isCovered(path + records.getFieldAsString(DIRECTORIES_PATHNAME));
    return stamped;
}

bool TreeVerification::mayGoOn() {
    if (++visited_ % kPerQuestion != 0 || goesOn_(result_.directories)) return true;
    result_.end = Verification::End::stopped;
    return false;
}

/// The number of levels down to the directory's own; 0 when it is not in the chain.
std::size_t TreeVerification::depthOf(unsigned id) const {
    std::size_t depth = depth_;
    while (depth > 0 && levels_[depth - 1]->id != id) --depth;
    return depth;
}

void TreeVerification::push() {
    if (depth_ == levels_.size()) levels_.push_back(std::make_unique<Level>());
    Level& level = *levels_[depth_++];
    level.directory.close();
    level.id = at_.id;
    level.name = at_.name;
    inside_.push_back(at_.id);
}

// A record in the last level.
void TreeVerification::visit() {
    ++result_.directories;
    if (at_.covered) return noteCovered();
    // What is on another device is judged with the directory that holds it.
    const bool known = at_.examined && (at_.error != 0 || at_.info.st_dev == device_);
    if (known ? judge(nullptr, at_.error, at_.info) : look(open(depth_ - 1))) push();
}

// A directory that was read while a drive was mounted in it has no stamp, and what the cache has
// there is that drive's own tree. Otherwise the drive has come since.
void TreeVerification::noteCovered() {
    if (store_.stamps().find(at_.parent).exists()) note(State::covered);
}

// Opens the level by those that hold it. Null where it cannot be reached.
const Directory* TreeVerification::open(std::size_t level) {
    std::size_t from = level;
    while (!levels_[from]->directory.isOpen()) --from;
    for (; from < level; ++from) {
        Level& next = *levels_[from + 1];
        if (next.directory.openChild(levels_[from]->directory, next.name.c_str(),
                                     DirectoryUse::reach) != 0)
            return nullptr;
        if (from > kOpenLevels) levels_[from - kOpenLevels]->directory.close();
    }
    return &levels_[level]->directory;
}

// Whether the directory of the record is there.
bool TreeVerification::look(const Directory* parent) {
    struct stat info {};
    const int error = parent ? parent->statEntry(at_.name.c_str(), info) : EACCES;
    return judge(parent, error, info);
}

bool TreeVerification::judge(const Directory* parent, int error, const struct stat& info) {
    if (isAbsent(error) || (error == 0 && !S_ISDIR(info.st_mode))) {
        note(State::gone);
        return false;
    }
    if (error == 0)
        compare(info, trustAt(parent, info));
    else
        note(State::changed);
    return true;
}

// Another device may be a file system of another kind, whose times go in other steps or say
// nothing. Each is asked once.
const StampTrust* TreeVerification::trustAt(const Directory* parent, const struct stat& info) {
    if (info.st_dev == device_) return trust_;
    const auto [known, isNew] = others_.try_emplace(info.st_dev, nullptr);
    if (!isNew) return known->second;
    Directory directory;
    std::uint32_t type = 0;
    struct stat now {};
    if (directory.openChild(*parent, at_.name.c_str(), DirectoryUse::reach) == 0 &&
        directory.examine(now) == 0 && now.st_dev == info.st_dev &&
        directory.fileSystemType(type) == 0)
        known->second = findStampTrust(type);
    return known->second;
}

void TreeVerification::compare(const struct stat& info, const StampTrust* trust) {
    if (!trust || !isUnchanged(store_.stamps().find(at_.id), DirectoryStamp(info, 0), trust->step))
        note(State::changed);
}

void TreeVerification::visitLate() {
    std::vector<unsigned> refused;  // what is below them is not looked at
    for (const unsigned record : late_) {
        at_ = {};
        if (!mayGoOn()) return;
        if (!records_.decode(record, at_) || !chain_.enter(at_.parent)) {
            result_.end = Verification::End::damaged;
            return;
        }
        if (std::binary_search(refused.begin(), refused.end(), at_.parent) || !visitByPath())
            refused.push_back(at_.id);
    }
}

// A record whose directory's parent is not in the chain. Whether the directory is there.
bool TreeVerification::visitByPath() {
    ++result_.directories;
    std::wstring path = chain_.path();
    Directory parent;
    const int error = parent.openPath(toMultibyte(path).c_str(), DirectoryUse::reach);
    path.append(path.ends_with(L'/') ? L"" : L"/").append(toWide(at_.name));
    if (!isCovered(path) && !isAbsent(error)) return look(error == 0 ? &parent : nullptr);
    if (isAbsent(error))
        note(State::gone);
    else
        noteCovered();
    return false;
}

// ---- Changes that are known -------------------------------------------------

/// Finds the records of the directories that changes name.
class ChangeLookup {
public:
    ChangeLookup(CacheStore& store, CacheTree& tree, unsigned rootId, const TreeView& view)
        : store_(store), tree_(tree), rootId_(rootId), view_(view), mounts_(mountsInside(view)) {}

    Verification run(const TreeChanges& changes);

private:
    struct Place {
        unsigned id;
        std::size_t depth;  // 0: the root
        bool reached;       // the directory itself, and not one that holds it
    };
    bool isCovered(std::wstring_view path) const;
    Place placeOf(std::wstring_view path);
    bool take(const ChangedDirectory& change, bool facts);
    bool compareBelow(const ChangedDirectory& change, const Place& place);
    void note(const StaleDirectory& stale);

    CacheStore& store_;
    CacheTree& tree_;
    unsigned rootId_;
    const TreeView& view_;
    const MountMap* mounts_;  // null where none lies inside
    std::wstring compared_;   // the last directory of which all below it was compared
    std::map<unsigned, std::size_t> noted_;
    Verification result_;
};

Verification ChangeLookup::run(const TreeChanges& changes) {
    for (const ChangedDirectory& change : changes.directories) {
        if (!compared_.empty() && isWithin(change.path, compared_)) continue;
        if (!take(change, changes.applied || view_.facts)) break;
    }
    return std::move(result_);
}

// False when that ends it.
bool ChangeLookup::take(const ChangedDirectory& change, bool facts) {
    const bool counts =
        (change.what & (ChangedDirectory::names | ChangedDirectory::below)) != 0 || facts;
    if (!counts || isCovered(change.path)) return true;
    const Place place = placeOf(change.path);
    if (place.depth >= view_.levels) return true;
    if (place.reached && (change.what & ChangedDirectory::below) != 0)
        return compareBelow(change, place);
    ++result_.directories;
    note({.id = place.id,
          .state = State::changed,
          .facts = place.reached && (change.what & ChangedDirectory::facts) != 0});
    return true;
}

// Nothing below another drive is part of the tree.
bool ChangeLookup::isCovered(std::wstring_view path) const {
    const std::size_t root = std::wstring_view(view_.root.path.getPathName()).size();
    return mounts_ && climb(path, [&](std::wstring_view one) {
               return one.size() > root && mounts_->stops(one, view_.root.drive);
           });
}

// A directory without a record is new, or is not there any more: the nearest one that has a record
// tells.
ChangeLookup::Place ChangeLookup::placeOf(std::wstring_view path) {
    Place place{rootId_, 0, true};
    std::wstring_view rest =
        path.substr(withoutFinalSeparator(view_.root.path.getPathName()).size());
    while (rest.starts_with(L'/')) rest.remove_prefix(1);
    RecordSet& records = store_.directoryRecords();
    while (!rest.empty()) {
        const std::wstring name(rest.substr(0, rest.find(L'/')));
        if (!tree_.findChild(records, place.id, name)) {
            place.reached = false;
            break;
        }
        place.id = records.getFieldAsInt32(DIRECTORIES_ID);
        ++place.depth;
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
    }
    return place;
}

bool ChangeLookup::compareBelow(const ChangedDirectory& change, const Place& place) {
    compared_ = change.path;
    const auto depth = static_cast<unsigned>(place.depth);
    const PathDrive root{PathInfo(change.path.c_str(), true), view_.root.drive};
    const TreeView view{root, view_.mounts, view_.goesOn, view_.facts, view_.levels - depth};
    const Verification part = verifyTree(store_, place.id, place.depth == 0 ? view_ : view);
    result_.end = part.end;
    result_.directories += part.directories;
    for (const StaleDirectory& stale : part.stale) note(stale);
    return part.end == Verification::End::finished;
}

void ChangeLookup::note(const StaleDirectory& stale) {
    const auto [known, isNew] = noted_.try_emplace(stale.id, result_.stale.size());
    if (isNew) return result_.stale.push_back(stale);
    StaleDirectory& before = result_.stale[known->second];
    before.facts = before.facts || stale.facts;
    if (before.state == State::changed) before.state = stale.state;
}

}  // namespace

Verification verifyChanges(CacheStore& store, CacheTree& tree, unsigned rootId,
                           const TreeView& view, const TreeChanges& changes) {
    (void)store.readStamps();
    return ChangeLookup(store, tree, rootId, view).run(changes);
}

bool isVerifiable(const wchar_t* path) {
    Directory directory;
    std::uint32_t type = 0;
    return directory.openPath(toMultibyte(path).c_str(), DirectoryUse::reach) == 0 &&
           directory.fileSystemType(type) == 0 && findStampTrust(type);
}

Verification verifyTree(CacheStore& store, unsigned rootId, const TreeView& view) {
    (void)store.readStamps();  // without them, every directory counts as changed
    return TreeVerification(store, view).run(rootId);
}

}  // namespace fscanner
