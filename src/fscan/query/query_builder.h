#pragma once

#include <string>
#include <vector>

#include "fscan/query/drives.h"
#include "fscanner/fs/fs_query.h"

namespace fscan {

class Excludes;
struct Options;
struct SearchRoot;
struct SearchRoots;

/// The parts of the query that are the same for all roots.
struct QueryParts {
    const Options& options;
    const SearchRoots& roots;
    const Excludes& excludes;
    const DriveList& drives;
    std::wstring criteria;
};

void fillQuery(const QueryParts& parts, fscanner::FsQuery& query);

/// Makes `root` the one path that the query searches.
void setSearchedPath(const Options& options, const SearchRoot& root, fscanner::FsQuery& query);

}  // namespace fscan
