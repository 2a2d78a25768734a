#include "fscanner/engine/cache_tree.h"

#include <vector>

#include "fscanner/common/strings.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/fs/debug.h"

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

// Whether the chain of parents from `parent` up has the names, and ends at the top.
bool isBelow(RecordSet& ancestors, CacheLookups& lookups, unsigned parent,
             const std::vector<PathAncestor>& chain, bool caseFlag) {
    for (std::size_t k = 1; k < chain.size(); ++k) {
        if (!lookups.byId(ancestors, parent) || !isNamed(ancestors, chain[k].name, caseFlag))
            return false;
        parent = parentOf(ancestors);
    }
    return parent == 0;
}

}  // namespace

bool CacheTree::findPathByName(RecordSet& candidates, RecordSet& ancestors, const wchar_t* path,
                               bool caseFlag) {
    return findSpelledPath(candidates, ancestors, path, true) ||
           (!caseFlag && findSpelledPath(candidates, ancestors, path, false));
}

bool CacheTree::findSpelledPath(RecordSet& candidates, RecordSet& ancestors, const wchar_t* path,
                                bool caseFlag) {
    const std::vector<PathAncestor> chain = PathHelper::pathReducer(path);
    if (chain.empty()) return false;
    const std::wstring& name = chain.front().name;
    bool found = store_.lookups().byPathName(candidates, name, caseFlag);
    while (found && !isNamed(candidates, name, caseFlag)) found = candidates.moveNext();
    // Of a single name only the newest record is looked at, on purpose.
    if (chain.size() == 1) return found && parentOf(candidates) == 0;
    for (; found; found = candidates.moveNext()) {
        if (isNamed(candidates, name, caseFlag) &&
            isBelow(ancestors, store_.lookups(), parentOf(candidates), chain, caseFlag))
            return true;
    }
    return false;
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
    for (unsigned step = 0; step < kLongestChain; ++step) {
        const Known* directory = known(directories, id);
        if (!directory) return false;
        const bool joined = step > 0 && !directory->name.ends_with(L'/');
        if (joined && !wcs_stringCat(L"/", buffer, bufferSize)) return false;
        if (!wcs_stringCat(directory->name.c_str(), buffer, bufferSize)) return false;
        if (directory->parent == 0) return *buffer != L'\0';
        id = directory->parent;
    }
    return false;
}

void CacheTree::removeFiles(FS_Table& files, unsigned pathId) {
    pathMap_.clear();
    RecordSet records = files.openRecordSet();
    for (bool found = store_.lookups().byPathId(records, pathId); found; found = records.moveNext())
        records.remove();
    if (!files.closeRecordSet(records)) debug("FS_Cache::removeFiles - closeRecordSet failed!\n");
}

// Depth first, one record set a level; the levels are on the heap, because a path may
// have hundreds of components.
void CacheTree::removeTree(FS_Table& directories, FS_Table& files, unsigned id) {
    struct Level {
        unsigned id;
        RecordSet children;
        bool started;
    };
    pathMap_.clear();
    std::vector<Level> levels;
    levels.push_back({id, directories.openRecordSet(), false});
    while (!levels.empty()) {
        Level& level = levels.back();
        bool found = false;
        if (level.started) {
            store_.lookups().setParentId(level.id);
            found = level.children.moveNext();
        } else {
            level.started = true;
            found = store_.lookups().byParentId(level.children, level.id);
        }
        if (found && levels.size() < kLongestChain) {
            const unsigned child = level.children.getFieldAsInt32(DIRECTORIES_ID);
            levels.push_back({child, directories.openRecordSet(), false});
            continue;
        }
        removeFiles(files, level.id);
        store_.unread().remove(level.id);
        if (store_.lookups().byId(level.children, level.id)) level.children.remove();
        if (!directories.closeRecordSet(level.children))
            debug("FS_Cache::removeTree - closeRecordSet failed!\n");
        levels.pop_back();
    }
}

}  // namespace fscanner
