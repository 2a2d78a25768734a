#pragma once

#include <chrono>
#include <string>

#include "fscanner/engine/tree_changes.h"

namespace fscanner {

/// Asks the watcher of a cache for the changes of trees, for one search. One that does not answer,
/// or has let the search wait for two seconds in all, is not asked again.
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
    std::chrono::nanoseconds patience_ = std::chrono::seconds(2);
};

}  // namespace fscanner
