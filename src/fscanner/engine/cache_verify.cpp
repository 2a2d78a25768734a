#include "fscanner/engine/cache_verify.h"

#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <memory>

#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/engine/cache_tree.h"

// The records of directories are met in the order of storage, which is that of their IDs: a
// directory comes behind the one that holds it, and mostly in the order of the walk that built
// the tree. So there is a chain of levels from the root down to the last directory, and the next
// one mostly belongs to one of them. One that does not was inserted later: it waits until the
// end, and is then reached by its path.
//
// A level is opened when the first directory in it is looked at. Most directories hold no other,
// and cost one call.

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
    std::size_t pathLength = 0;  // of the path with its final "/"
};

bool isAbsent(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP;
}

class TreeVerification {
public:
    TreeVerification(CacheStore& store, const TreeView& view)
        : store_(store),
          root_(view.root),
          mounts_(view.mounts.hasInside(root_.path.getPathName()) ? &view.mounts : nullptr),
          goesOn_(view.goesOn),
          wanted_(view.levels),
          chain_(store) {}

    Verification run(unsigned rootId);

private:
    bool enterRoot(unsigned id);
    bool hasStamps(unsigned id);
    bool mayGoOn();
    bool readRecord(unsigned record);
    bool decode(unsigned record);
    void visit();
    bool isInside(unsigned id) const {
        return std::binary_search(inside_.begin(), inside_.end(), id);
    }
    std::size_t depthOf(unsigned id) const;
    void push();
    const Directory* open(std::size_t level);
    bool look(const Directory* parent);
    const StampTrust* trustAt(const Directory* parent, const struct stat& info);
    bool isCovered(const std::wstring& directory) const {
        return mounts_ && mounts_->stops(directory, root_.drive);
    }
    void note(State state) { result_.stale.push_back({id_, state}); }
    void noteCovered();
    void compare(const struct stat& info, const StampTrust* trust);
    void visitLate();
    bool visitByPath();

    CacheStore& store_;
    const PathDrive& root_;
    const MountMap* mounts_;  // null where none lies inside
    const GoesOn& goesOn_;
    unsigned wanted_;       // levels
    unsigned records_ = 0;  // looked at
    DirectoryChain chain_;
    Verification result_;
    const StampTrust* trust_ = nullptr;
    dev_t device_ = 0;                            // the root's
    std::map<dev_t, const StampTrust*> others_;   // of the drives inside
    std::vector<std::unique_ptr<Level>> levels_;  // those beyond depth_ are spare
    std::size_t depth_ = 0;
    std::vector<unsigned> inside_;
    std::vector<unsigned> late_;  // records
    std::wstring path_;           // of the last level, with its final "/", where there are mounts
    // The record at hand.
    std::vector<StoredValue> values_;
    unsigned id_ = 0;
    unsigned parent_ = 0;
    std::string name_;
};

Verification TreeVerification::run(unsigned rootId) {
    RecordSet& records = store_.directoryRecords();
    if (!store_.lookups().byId(records, rootId)) {
        result_.end = Verification::End::damaged;
        return std::move(result_);
    }
    if (!enterRoot(rootId) || !root_.path.getRecursive() || wanted_ == 1) return std::move(result_);
    unsigned record = records.recordId();
    const auto small = CacheTree(store_).smallTree(rootId);
    std::size_t position = 0;
    const auto moveNext = [&] {
        if (!small) return store_.directories().moveNext(record);
        if (++position == small->size()) return false;
        record = (*small)[position].record;
        return true;
    };
    while (moveNext()) {
        if (!readRecord(record) || !mayGoOn()) return std::move(result_);
        if (parent_ < rootId) continue;
        if (const std::size_t depth = depthOf(parent_); depth > 0) {
            depth_ = depth;
            if (depth < wanted_) visit();
        } else if (isInside(parent_)) {
            inside_.push_back(id_);
            late_.push_back(record);
        }
    }
    visitLate();
    return std::move(result_);
}

// False when that ends it.
bool TreeVerification::enterRoot(unsigned id) {
    id_ = id;
    path_ = root_.path.getPathName();
    name_ = toMultibyte(path_);
    push();
    Directory& directory = levels_[0]->directory;
    ++result_.directories;
    const int error = directory.openPath(name_.c_str(), DirectoryUse::reach);
    std::uint32_t type = 0;
    struct stat info {};
    if (error != 0 || directory.examine(info) != 0 || directory.fileSystemType(type) != 0) {
        note(State::gone);
        return false;
    }
    trust_ = findStampTrust(type);
    device_ = info.st_dev;
    if (!trust_) {
        if (hasStamps(id_))
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
    std::wstring path = path_;
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
    if (++records_ % kPerQuestion != 0 || goesOn_(result_.directories)) return true;
    result_.end = Verification::End::stopped;
    return false;
}

bool TreeVerification::readRecord(unsigned record) {
    const bool read = decode(record);
    if (!read) result_.end = Verification::End::damaged;
    return read;
}

bool TreeVerification::decode(unsigned record) {
    if (!store_.directories().locate(record, values_)) return false;
    id_ = static_cast<unsigned>(values_[DIRECTORIES_ID].number);
    parent_ = static_cast<unsigned>(values_[DIRECTORIES_PARENTID].number);
    name_ = values_[DIRECTORIES_PATHNAME].text;
    if (isAscii(name_)) return true;
    Fields decoded(store_.directories().schema());
    if (!store_.directories().read(record, decoded)) return false;
    name_ = toMultibyte(decoded.as<TextField>(DIRECTORIES_PATHNAME)->view());
    return true;
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
    level.id = id_;
    level.name = name_;
    if (mounts_) {
        if (!path_.ends_with(L'/')) path_ += L'/';
        level.pathLength = path_.size();
    }
    inside_.push_back(id_);
}

// A record in the last level.
void TreeVerification::visit() {
    ++result_.directories;
    if (mounts_) {
        path_.resize(levels_[depth_ - 1]->pathLength);
        path_ += toWide(name_);
        if (isCovered(path_)) return noteCovered();
    }
    if (look(open(depth_ - 1))) push();
}

// A directory that was read while a drive was mounted in it has no stamp, and what the cache has
// there is that drive's own tree. Otherwise the drive has come since.
void TreeVerification::noteCovered() {
    if (store_.stamps().find(parent_).exists()) note(State::covered);
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
    const int error = parent ? parent->statEntry(name_.c_str(), info) : EACCES;
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
    if (directory.openChild(*parent, name_.c_str(), DirectoryUse::reach) == 0 &&
        directory.examine(now) == 0 && now.st_dev == info.st_dev &&
        directory.fileSystemType(type) == 0)
        known->second = findStampTrust(type);
    return known->second;
}

void TreeVerification::compare(const struct stat& info, const StampTrust* trust) {
    if (!trust || !isUnchanged(store_.stamps().find(id_), DirectoryStamp(info, 0), trust->step))
        note(State::changed);
}

void TreeVerification::visitLate() {
    std::vector<unsigned> refused;  // what is below them is not looked at
    for (const unsigned record : late_) {
        if (!readRecord(record) || !mayGoOn()) return;
        if (!chain_.enter(parent_)) {
            result_.end = Verification::End::damaged;
            return;
        }
        if (std::binary_search(refused.begin(), refused.end(), parent_) || !visitByPath())
            refused.push_back(id_);
    }
}

// A record whose directory's parent is not in the chain. Whether the directory is there.
bool TreeVerification::visitByPath() {
    ++result_.directories;
    std::wstring path = chain_.path();
    Directory parent;
    const int error = parent.openPath(toMultibyte(path).c_str(), DirectoryUse::reach);
    path.append(path.ends_with(L'/') ? L"" : L"/").append(toWide(name_));
    if (!isCovered(path) && !isAbsent(error)) return look(error == 0 ? &parent : nullptr);
    if (isAbsent(error))
        note(State::gone);
    else
        noteCovered();
    return false;
}

}  // namespace

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
