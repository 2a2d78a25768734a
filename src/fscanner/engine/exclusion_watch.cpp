#include "fscanner/engine/exclusion_watch.h"

#include <string>
#include <vector>

#include "fscanner/common/wildcard.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/engine/directory_chain.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscanner {

ExclusionWatch::ExclusionWatch(const std::vector<PathInfo>& exclusions, bool caseSensitive)
    : caseSensitive_(caseSensitive) {
    if (!scanObserver()) return;
    for (const PathInfo& exclusion : exclusions)
        if (exclusion.getPathName()) others_.push_back(&exclusion);
}

bool ExclusionWatch::covers(const PathInfo& exclusion, const wchar_t* directory) const {
    return wildvcpathcmp(exclusion.getPathName(), directory, exclusion.getRecursive(),
                         caseSensitive_) != 0;
}

void ExclusionWatch::met(const wchar_t* directory) {
    const auto isThis = [&](const PathInfo* exclusion) { return covers(*exclusion, directory); };
    FsScanObserver* const observer = scanObserver();
    if (std::erase_if(others_, isThis) > 0 && observer)
        observer->skipped(directory, FsSkipReason::excluded, 0);
}

void ExclusionWatch::lookUpOthers(CacheStore& store,
                                  const std::function<bool(const wchar_t*)>& isSearched) {
    // What is met for one of them may be met for others as well, which leave the list.
    while (!others_.empty()) {
        const PathInfo* const exclusion = others_.back();
        lookUp(store, *exclusion, isSearched);
        std::erase(others_, exclusion);
    }
}

// The last name of a pattern leads to the directories of that name, by the index, unless
// it has a wildcard: then all directories are looked at.
void ExclusionWatch::lookUp(CacheStore& store, const PathInfo& exclusion,
                            const std::function<bool(const wchar_t*)>& isSearched) {
    const std::wstring text = exclusion.getPathName();
    const std::wstring name = text.substr(text.rfind(L'/') + 1);
    RecordSet directories = store.directories().openRecordSet();
    DirectoryChain chain(store);
    bool found = false;
    if (name.empty() || checkWildCard(name.c_str())) {
        directories.setCriteria(nullptr, true);
        found = directories.moveFirst();
    } else {
        found = store.lookups().byPathName(directories, name, caseSensitive_);
    }
    for (; found; found = directories.moveNext()) {
        if (!chain.enter(directories.getFieldAsInt32(DIRECTORIES_ID))) continue;
        const wchar_t* const path = chain.path().c_str();
        if (!covers(exclusion, path) || !isSearched(path)) continue;
        met(path);
        break;
    }
    store.directories().closeRecordSet(directories);
}

}  // namespace fscanner
