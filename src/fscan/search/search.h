#pragma once

#include <string>

#include "fscan/query/excludes.h"
#include "fscan/query/filters.h"

namespace fscanner {
class FsQuery;
}

namespace fscan {

class DriveList;
class Output;
struct Asking;
struct Options;
struct SearchRoots;

/// What the matches have to satisfy.
struct Conditions {
    /// `criteria`: the user's own. `cached`: the answer may come from a cache.
    Conditions(const Options& options, Excludes left, const std::wstring& criteria, bool cached);

    Excludes excludes;
    NameFilter names;
    FileFilters files;
    std::wstring where;  ///< the user's criteria
    std::wstring rest;   ///< all criteria but for the names
    std::wstring all;
};

/// What the searches of all roots go by.
struct Search {
    const Options& options;
    const SearchRoots& roots;
    const DriveList& drives;
    Asking& asking;
    const Conditions& conditions;
    fscanner::FsQuery& query;  ///< all of it but the path
};

/// Runs the search that the options describe; returns the exit status.
int runSearch(const Options& options, Output& out);

}  // namespace fscan
