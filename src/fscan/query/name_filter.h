#pragma once

#include <string>
#include <vector>

namespace fscan {

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

}  // namespace fscan
