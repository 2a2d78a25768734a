#pragma once

#include <string>
#include <vector>

namespace fscanner {
class FsFileInfo;
}

namespace fscan {

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
    /// Whether `accept` looks at more than the path.
    bool needRecords() const;
    /// `record` may be null where none is needed.
    bool accept(const std::wstring& directory, const wchar_t* name,
                const fscanner::FsFileInfo* record) const;

private:
    bool pathFits(const std::wstring& directory, const wchar_t* name) const;

    const Options& options_;
    std::wstring criteria_;
    std::vector<std::wstring> paths_;
};

}  // namespace fscan
