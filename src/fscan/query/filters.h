#pragma once

#include <string>
#include <vector>

namespace fscan {

struct FileDetails;
struct Options;

/// The name patterns of the command line.
///
/// They become criteria, so that an engine drops most files early, and are
/// checked once more here: the criteria language takes a wildcard in a stored
/// name for a pattern too, and cannot hold a double quote.
class NameFilter {
public:
    explicit NameFilter(const Options& options);

    /// The criteria that all matching names satisfy; empty where all names match.
    std::wstring criteria() const;
    bool accepts(const wchar_t* name) const;
    /// The same of a name that satisfies the criteria, which is nearly always enough.
    bool confirms(const wchar_t* name) const;

private:
    std::vector<std::wstring> globs_;
    bool exact_ = true;  // the criteria says all that the patterns do
    bool caseSensitive_;
};

/// What the command line asks of a file besides its name and the criteria.
///
/// What the criteria language can say becomes criteria; what it cannot, the path,
/// times and owner, is looked at in the matches. So are permissions where a cache may
/// have old ones.
class FileFilters {
public:
    /// `mayBeOld`: sizes and permissions of a search may be those of a cache.
    FileFilters(const Options& options, bool mayBeOld);

    /// Criteria that are and-ed with all others; empty where there are none.
    const std::wstring& criteria() const { return criteria_; }
    bool pathFits(const std::wstring& directory, const wchar_t* name) const;
    /// Whether there is more to look at than the path and the criteria: `accept` then decides.
    bool needDetails() const;
    /// Whether a file that was examined is what the options ask for, but for its path and type.
    bool accept(const FileDetails& file) const;

private:
    const Options& options_;
    bool mayBeOld_;
    std::wstring criteria_;
    std::vector<std::wstring> paths_;
};

}  // namespace fscan
