#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "fscanner/fs/fs_events.h"

namespace fscanner {

/// A directory that may not be as a cache has it.
struct ChangedDirectory {
    enum What : unsigned {
        names = 1,  ///< its entries
        facts = 2,  ///< sizes and attributes of its files
        below =
            4,  ///< it may be another one: it and all below it is to be compared with its stamps
    };
    std::wstring path;
    unsigned what = 0;
    bool operator==(const ChangedDirectory&) const = default;
};

/// What a watcher knows of a tree, or a part of one.
struct TreeChanges {
    bool applied = false;  ///< the changes of facts are to be written, and not only to be known
    std::vector<ChangedDirectory> directories;  ///< by path
};

/// Tells of the changes of trees. Nothing of one that is not watched, or of which something was
/// missed: then only a look at all its directories tells.
class ChangeSource {
public:
    virtual ~ChangeSource() = default;
    /// What changed before the call in the tree of the directory with this path.
    virtual std::optional<TreeChanges> changesIn(const wchar_t* path) = 0;
};

/// The directories that events tell of: many events, few directories.
class ChangeSet {
public:
    /// More directories than this are not worth a list.
    static constexpr std::size_t kMost = 20'000;

    /// Events that say that something was missed are not for a set.
    void add(const FS_Event& event);
    void add(std::wstring_view path, unsigned what);
    void add(const ChangeSet& others);
    /// Of a directory and those below it, by path. What an ancestor says of all below it is among
    /// it, as said of the directory itself.
    std::vector<ChangedDirectory> within(std::wstring_view path) const;
    bool empty() const { return changes_.empty(); }
    bool isTooLarge() const { return changes_.size() > kMost; }
    std::size_t size() const { return changes_.size(); }
    void clear() { changes_.clear(); }
    /// Whether a directory but this one has changed in one of these ways.
    bool hasBeside(std::wstring_view path, unsigned what) const;

private:
    std::unordered_map<std::wstring, unsigned> changes_;
    std::wstring key_;  // for lookups, kept for its memory
};

}  // namespace fscanner
