#include "fscanner/engine/cache_tree.h"

#include <algorithm>
#include <set>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/pathhelper.h"

namespace fscanner {

namespace {

// The path map is emptied, not trimmed, when it holds more.
constexpr std::size_t kPathMapEntries = 32;

bool isNamed(const RecordSet& directories, const std::wstring& name, bool caseFlag) {
    const wchar_t* stored = directories.getFieldAsString(DIRECTORIES_PATHNAME);
    return stored && wcsvccmp(stored, name.c_str(), caseFlag) == 0;
}

unsigned parentOf(const RecordSet& directories) {
    return directories.getFieldAsInt32(DIRECTORIES_PARENTID);
}

bool reportNoParent(CacheStore& store) {
    return store.directories().reportDamage("a parent that is not there");
}

// Goes to the record of a directory that holds another one, which must be there.
bool findParent(CacheStore& store, RecordSet& records, unsigned id) {
    return store.lookups().byId(records, id) || reportNoParent(store);
}

// Whether the chain of parents from `parent` up has all names but the last, and ends at the
// top.
bool isBelow(RecordSet& ancestors, CacheStore& store, unsigned parent,
             const std::vector<std::wstring>& names, bool caseFlag) {
    for (std::size_t level = names.size() - 1; level > 0; --level) {
        if (parent == 0 || !findParent(store, ancestors, parent) ||
            !isNamed(ancestors, names[level - 1], caseFlag))
            return false;
        parent = parentOf(ancestors);
    }
    return parent == 0;
}

}  // namespace

void forgetTimes(CacheStore& store, unsigned id) {
    RecordSet& records = store.directoryRecords();
    for (CircleGuard circle; id != 0 && !circle.closes(id);) {
        if (!findParent(store, records, id)) return;
        id = records.getFieldAsInt32(DIRECTORIES_PARENTID);
        if (records.getFieldAsInt32(DIRECTORIES_CREATIONTIME) == 0) continue;
        records.setFieldAsInt32(DIRECTORIES_CREATIONTIME, 0);
        if (!records.update()) store.markBroken();
    }
}

std::vector<std::wstring> pathNames(const wchar_t* path) {
    std::vector<std::wstring> names = PathHelper::structured_path_decomposer(path);
    if (*path == L'/') names.insert(names.begin(), PathHelper::PathSeparator);
    return names;
}

bool CacheTree::findPathByName(RecordSet& candidates, RecordSet& ancestors, const wchar_t* path,
                               bool caseFlag) {
    return findSpelledPath(candidates, ancestors, path, true) ||
           (!caseFlag && findSpelledPath(candidates, ancestors, path, false));
}

bool CacheTree::findSpelledPath(RecordSet& candidates, RecordSet& ancestors, const wchar_t* path,
                                bool caseFlag) {
    const std::vector<std::wstring> names = pathNames(path);
    if (names.empty()) return false;
    const std::wstring& name = names.back();
    bool found = store_.lookups().byPathName(candidates, name, caseFlag);
    while (found && !isNamed(candidates, name, caseFlag)) found = candidates.moveNext();
    // Of a single name only the newest record is looked at, on purpose.
    if (names.size() == 1) return found && parentOf(candidates) == 0;
    for (; found; found = candidates.moveNext()) {
        if (isNamed(candidates, name, caseFlag) &&
            isBelow(ancestors, store_, parentOf(candidates), names, caseFlag))
            return true;
    }
    return false;
}

bool CacheTree::findChild(RecordSet& records, unsigned parent, const std::wstring& name) {
    bool found = store_.lookups().byPathName(records, name, true);
    while (found && (parentOf(records) != parent || !isNamed(records, name, true))) {
        // Of the topmost ones only the newest record is looked at, as of a single name.
        if (parent == 0 && isNamed(records, name, true)) return false;
        found = records.moveNext();
    }
    return found;
}

const CacheTree::Known* CacheTree::known(RecordSet& directories, unsigned id) {
    if (pathMap_.size() > kPathMapEntries) pathMap_.clear();
    const auto found = pathMap_.find(id);
    if (found != pathMap_.end()) return &found->second;
    if (!store_.lookups().byId(directories, id)) return nullptr;
    const wchar_t* name = directories.getFieldAsString(DIRECTORIES_PATHNAME);
    return &pathMap_.emplace(id, Known{name ? name : L"", parentOf(directories)}).first->second;
}

bool CacheTree::findPathById(RecordSet& directories, unsigned id, wchar_t* buffer,
                             unsigned bufferSize) {
    if (!buffer || bufferSize == 0) return false;
    *buffer = L'\0';
    CircleGuard circle;
    for (bool first = true; !circle.closes(id); first = false) {
        const Known* directory = known(directories, id);
        if (!directory) return false;
        const bool joined = !first && !directory->name.ends_with(L'/');
        if (joined && !wcs_stringCat(L"/", buffer, bufferSize)) return false;
        if (!wcs_stringCat(directory->name.c_str(), buffer, bufferSize)) return false;
        if (directory->parent == 0) return *buffer != L'\0';
        id = directory->parent;
    }
    return false;
}

bool CacheTree::isInside(RecordSet& directories, unsigned id, unsigned root) {
    for (CircleGuard circle; id != 0 && id != root && !circle.closes(id);) {
        const Known* directory = known(directories, id);
        if (!directory) return reportNoParent(store_);
        id = directory->parent;
    }
    return id == root;
}

// The one on the way is the only child of its parent; the topmost has the parent 0.
bool CacheTree::isAlone(RecordSet& directories, unsigned id) {
    for (CircleGuard circle; id != 0 && !circle.closes(id);) {
        if (!store_.lookups().byId(directories, id)) return false;
        const unsigned parent = parentOf(directories);
        const bool first = store_.lookups().byParentId(directories, parent) &&
                           directories.getFieldAsInt32(DIRECTORIES_ID) == id;
        if (!first || directories.moveNext()) return false;
        if (parent != 0 && (!store_.lookups().byId(directories, parent) ||
                            directories.getFieldAsInt32(DIRECTORIES_CREATIONTIME) != 0))
            return false;
        id = parent;
    }
    return id == 0;
}

bool CacheTree::removeFiles(FS_Table& files, unsigned pathId) {
    pathMap_.clear();
    RecordSet records = files.openRecordSet();
    bool removed = true;
    for (bool found = store_.lookups().byPathId(records, pathId); found; found = records.moveNext())
        removed = records.remove() && removed;
    if (!files.closeRecordSet(records)) debug("FS_Cache::removeFiles - closeRecordSet failed!\n");
    return removed;
}

// The directory that held it lacks something now, whatever the system says of it.
bool CacheTree::removeFromParent(RecordSet& directory) {
    return store_.stamps().put(parentOf(directory), {}) && directory.remove();
}

// A directory's record goes before it is searched for children: so each is met once, also in
// a damaged table, and what waits are IDs alone.
bool CacheTree::removeTree(FS_Table& directories, FS_Table& files, unsigned id) {
    pathMap_.clear();
    RecordSet records = directories.openRecordSet();
    bool removed = !store_.lookups().byId(records, id) || removeFromParent(records);
    std::vector<unsigned> waiting{id};
    while (!waiting.empty()) {
        const unsigned parent = waiting.back();
        waiting.pop_back();
        removed = removeFiles(files, parent) && removed;
        store_.unread().remove(parent);
        bool found = store_.lookups().byParentId(records, parent);
        for (; found; found = records.moveNext()) {
            const unsigned child = records.getFieldAsInt32(DIRECTORIES_ID);
            if (records.remove())
                waiting.push_back(child);
            else
                removed = false;
        }
    }
    if (!directories.closeRecordSet(records))
        debug("FS_Cache::removeTree - closeRecordSet failed!\n");
    return removed;
}

// A lookup of a directory with its files costs as much as some thousand files in a row.
std::optional<std::vector<TreeMember>> CacheTree::smallTree(unsigned root) {
    constexpr unsigned filesPerDirectory = 2048;
    unsigned files = 0;
    RecordSet& records = store_.ancestorRecords();
    if (!store_.files().count(0, &files) || !store_.lookups().byId(records, root))
        return std::nullopt;
    const unsigned most = files / filesPerDirectory;
    if (most == 0) return std::nullopt;
    std::vector<TreeMember> members{{records.recordId(), root}};
    for (std::size_t next = 0; next < members.size(); ++next) {
        bool found = store_.lookups().byParentId(records, members[next].id);
        for (; found; found = records.moveNext()) {
            if (members.size() > most) return std::nullopt;
            members.push_back({records.recordId(), records.getFieldAsInt32(DIRECTORIES_ID)});
        }
    }
    std::sort(members.begin() + 1, members.end());
    return members;
}

unsigned long long CacheTree::countDirectories(unsigned root) {
    std::vector<bool> inside(store_.directoriesIndex() + 1);
    if (root >= inside.size()) return 0;
    inside[root] = true;
    unsigned long long directories = 1;
    std::vector<StoredValue> values;
    unsigned record = 0;
    FS_Table& table = store_.directories();
    bool found = table.moveFirst(record);
    for (; found && table.locate(record, values); found = table.moveNext(record)) {
        const std::uint64_t id = values[DIRECTORIES_ID].number;
        const std::uint64_t parent = values[DIRECTORIES_PARENTID].number;
        if (id >= inside.size() || parent >= inside.size() || !inside[parent]) continue;
        inside[id] = true;
        ++directories;
    }
    return directories;
}

bool CacheTree::removeEmpty(FS_Table& directories, unsigned id) {
    RecordSet records = directories.openRecordSet();
    bool removed = true;
    while (removed && id != 0 && !store_.lookups().byParentId(records, id) &&
           !store_.lookups().byPathId(store_.filesRecords(), id) &&
           store_.lookups().byId(records, id) &&
           records.getFieldAsInt32(DIRECTORIES_CREATIONTIME) == 0) {
        const unsigned parent = parentOf(records);
        removed = records.remove();
        pathMap_.clear();
        store_.unread().remove(id);
        id = parent;
    }
    if (!directories.closeRecordSet(records))
        debug("FS_Cache::removeEmpty - closeRecordSet failed!\n");
    return removed;
}

// Each directory is gone into once, also where a damaged table has an ID twice.
std::vector<CachedRoot> CacheTree::roots() {
    std::vector<CachedRoot> roots;
    std::vector<CachedRoot> waiting{{}};
    std::set<unsigned> seen{0};
    RecordSet& records = store_.directoryRecords();
    while (!waiting.empty()) {
        const CachedRoot above = std::move(waiting.back());
        waiting.pop_back();
        bool found = store_.lookups().byParentId(records, above.id);
        for (; found; found = records.moveNext()) {
            const unsigned id = records.getFieldAsInt32(DIRECTORIES_ID);
            const wchar_t* const name = records.getFieldAsString(DIRECTORIES_PATHNAME);
            if (!name || !seen.insert(id).second) continue;
            const unsigned built = records.getFieldAsInt32(DIRECTORIES_CREATIONTIME);
            (built != 0 ? roots : waiting)
                .push_back({id, above.id, built,
                            above.path + (needsSeparator(above.path) ? L"/" : L"") + name});
        }
    }
    return roots;
}

// ---- The chain of a directory -----------------------------------------------

DirectoryChain::DirectoryChain(CacheStore& store)
    : store_(store),
      record_(store.directories().schema()),
      name_(record_.as<TextField>(DIRECTORIES_PATHNAME)),
      id_(record_.as<Int32Field>(DIRECTORIES_ID)),
      parent_(record_.as<Int32Field>(DIRECTORIES_PARENTID)),
      shift_(0U - 1) {}

bool DirectoryChain::enter(unsigned id) {
    if (!climb(id)) return fail();
    levels_.resize(kept_);
    path_.resize(kept_ == 0 ? 0 : levels_.back().length);
    descend();
    return !path_.empty() || fail();
}

std::wstring DirectoryChain::topmostBeyond(std::size_t length) const {
    const auto isLonger = [=](const Level& level) { return level.length > length; };
    const auto found = std::find_if(levels_.begin(), levels_.end(), isLonger);
    return path_.substr(0, found == levels_.end() ? path_.npos : found->length);
}

bool DirectoryChain::fail() {
    levels_.clear();
    path_.clear();
    kept_ = 0;
    return false;
}

/// The number of levels down to the directory's own; 0 when it is not in the chain.
std::size_t DirectoryChain::levelOf(unsigned id) const {
    std::size_t level = levels_.size();
    while (level > 0 && levels_[level - 1].id != id) --level;
    return level;
}

/// From the directory up to where the chain is met, or to the top.
bool DirectoryChain::climb(unsigned id) {
    below_.clear();
    CircleGuard circle;
    for (kept_ = levelOf(id); kept_ == 0; kept_ = levelOf(id)) {
        if (circle.closes(id) || !look(id)) return false;
        if (names_.size() == below_.size()) names_.emplace_back();
        names_[below_.size()] = name_->view();
        below_.push_back({id, name_->view().ends_with(L'/'), 0});
        id = parent_->value();
        if (id == 0) break;
    }
    return true;
}

void DirectoryChain::descend() {
    for (std::size_t i = below_.size(); i > 0; --i) {
        if (!levels_.empty() && !levels_.back().joined) path_ += L'/';
        path_ += names_[i - 1];
        levels_.push_back({below_[i - 1].id, below_[i - 1].joined, path_.size()});
    }
}

/// Reads the directory's record.
bool DirectoryChain::look(unsigned id) {
    FS_Table& directories = store_.directories();
    const unsigned expected = id + shift_;
    if (directories.isLive(expected) && directories.read(expected, record_) && id_->value() == id)
        return true;
    return lookUp(id);
}

bool DirectoryChain::lookUp(unsigned id) {
    RecordSet& records = store_.directoryRecords();
    if (!store_.lookups().byId(records, id)) return false;
    shift_ = records.recordId() - id;
    return store_.directories().read(records.recordId(), record_);
}

}  // namespace fscanner
