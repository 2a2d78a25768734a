#pragma once

#include <string>

#include "fscanner/engine/tree_changes.h"

namespace fscanner {

/// Asks the watcher of a cache for the changes of trees. One that does not answer within two
/// seconds is not asked again.
class WatchClient : public ChangeSource {
public:
    /// `table` is the cache's table of directories.
    WatchClient(std::wstring directory, std::wstring table)
        : directory_(std::move(directory)), table_(std::move(table)) {}

    std::optional<TreeChanges> changesIn(const wchar_t* path) override;

private:
    std::wstring directory_;
    std::wstring table_;
    bool silent_ = false;
};

}  // namespace fscanner
