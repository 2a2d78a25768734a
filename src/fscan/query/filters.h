#pragma once

#include <string>
#include <vector>

namespace fscan {

struct FileDetails;
struct Options;

/// The name patterns of the command line.
///
/// They become criteria, so that the engine drops most files early, and are checked
/// once more here: in the criteria language a stored name with a wildcard acts as a pattern,
/// too, and no text can hold a double quote.
class NameFilter {
public:
    explicit NameFilter(const Options& options);

    /// The criteria that all matching names satisfy; empty where all names match.
    std::wstring criteria() const;
    bool accepts(const wchar_t* name) const;
    /// The same for a name that satisfies the criteria, which is faster.
    bool confirms(const wchar_t* name) const;

private:
    std::vector<std::wstring> globs_;
    bool exact_ = true;  // the criteria expresses the patterns exactly
    bool caseSensitive_;
};

/// The conditions of the command line besides names and criteria.
///
/// Conditions that the criteria language can express become criteria. The others, on the
/// path, times and owner, are checked on the matches; so are permissions where those in a
/// cache may be old.
class FileFilters {
public:
    /// `mayBeOld`: sizes and permissions of the matches may come from a cache.
    FileFilters(const Options& options, bool mayBeOld);

    /// Criteria that are and-ed with all others; empty where there are none.
    const std::wstring& criteria() const { return criteria_; }
    bool pathFits(const std::wstring& directory, const wchar_t* name) const;
    /// Whether `accept` must check matches, beyond their paths and the criteria.
    bool needDetails() const;
    /// Whether an examined file meets the conditions, except those on its path and type.
    bool accept(const FileDetails& file) const;

private:
    const Options& options_;
    bool mayBeOld_;
    std::wstring criteria_;
    std::vector<std::wstring> paths_;
};

}  // namespace fscan
