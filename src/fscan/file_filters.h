#pragma once

#include <string>
#include <vector>

namespace fscan {

struct FileDetails;
struct Options;

/// What the command line asks of a file besides its name and the criteria.
///
/// What the criteria language can say becomes criteria; what it cannot, the path,
/// times and owner, is looked at in the matches.
class FileFilters {
public:
    explicit FileFilters(const Options& options);

    /// Criteria that are and-ed with all others; empty where there are none.
    const std::wstring& criteria() const { return criteria_; }
    bool pathFits(const std::wstring& directory, const wchar_t* name) const;
    /// Whether there is more to look at than the path: `accept` then decides.
    bool needDetails() const;
    bool accept(const FileDetails& file) const;

private:
    const Options& options_;
    std::wstring criteria_;
    std::vector<std::wstring> paths_;
};

}  // namespace fscan
