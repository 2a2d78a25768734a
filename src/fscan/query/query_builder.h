#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fscan/process/exit_status.h"
#include "fscan/query/search_roots.h"
#include "fscanner/fs/fs_query.h"

namespace fscan {

class Excludes;
class Output;
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
    bool criteriaIgnoresCase;
};

void fillQuery(const QueryParts& parts, fscanner::FsQuery& query);

/// Makes `root` the one path that the query searches.
void setSearchedPath(const Options& options, const SearchRoot& root, fscanner::FsQuery& query);
/// Adds `root` to the paths that the query searches.
void addSearchedPath(const Options& options, const SearchRoot& root, fscanner::FsQuery& query);

/// The text without blanks at its ends, which the criteria language does not accept.
std::wstring trimmed(std::wstring_view text);

/// Appends a condition with "&&". Both may be empty.
void andAlso(std::wstring& criteria, std::wstring_view condition);

/// Joins the user's criteria: "(a) && (b)"; empty where there are none. Each is compiled
/// alone first, so that none can close our parentheses. Nothing, with a message, where one
/// does not compile.
std::optional<std::wstring> combineCriteria(const std::vector<std::string>& texts);

/// Prints how the library compiles the criteria.
ExitStatus checkCriteria(const std::string& text, bool caseSensitive, Output& out);

}  // namespace fscan
