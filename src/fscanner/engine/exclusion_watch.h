#pragma once

#include <functional>
#include <vector>

#include "fscanner/discovery/path_info.h"

namespace fscanner {

class CacheStore;

/// Tells the observer which exclusions an answer from the cache met, so that a host knows
/// of those that met nothing: each once, by one directory that it leaves out. Does nothing
/// without an observer. The exclusions must outlive it.
class ExclusionWatch {
public:
    ExclusionWatch(const std::vector<PathInfo>& exclusions, bool caseSensitive);

    /// Takes note of a directory that some exclusion covers.
    void met(const wchar_t* directory);
    /// Looks for the exclusions that were not met so far, among the directories that
    /// `isSearched`: their files may not have matched.
    void lookUpOthers(CacheStore& store,
                      const std::function<bool(const wchar_t* directory)>& isSearched);

private:
    void lookUp(CacheStore& store, const PathInfo& exclusion,
                const std::function<bool(const wchar_t* directory)>& isSearched);
    bool covers(const PathInfo& exclusion, const wchar_t* directory) const;

    std::vector<const PathInfo*> others_;
    bool caseSensitive_;
};

}  // namespace fscanner
