#pragma once

#include <string>
#include <vector>

#include "fscan/process/exit_status.h"
#include "fscan/query/filters.h"

namespace fscanner {
class FsQuery;
}

namespace fscan {

class DriveList;
class Output;
struct ProviderSession;
struct Options;
struct SearchRoots;

/// The conditions that matches have to satisfy.
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

/// The parameters that the searches of all roots share.
struct Search {
    const Options& options;
    const SearchRoots& roots;
    const DriveList& drives;
    ProviderSession& session;
    const Conditions& conditions;
    fscanner::FsQuery& query;  ///< complete but for the path
};

/// Runs the search that the options describe.
ExitStatus runSearch(const Options& options, Output& out);

/// Prints paths that such a search found, or runs the command of the options for them.
ExitStatus deliverPaths(const Options& options, const std::vector<std::string>& paths, Output& out);

}  // namespace fscan
