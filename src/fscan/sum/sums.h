#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "fscan/match/match.h"

namespace fscan {

/// A number of files, and the bytes of all.
struct Sum {
    unsigned long long files = 0;
    unsigned long long bytes = 0;

    void add(unsigned long long more) {
        ++files;
        bytes += more;
    }
};

/// A group of files and its sum.
struct Group {
    std::string name;
    Sum sum;
};

/// Sums by the names of groups. A reference to a sum is valid as long as this lives.
class Sums {
public:
    Sum& of(std::string_view name);
    std::size_t size() const { return sums_.size(); }
    /// The groups with the most bytes first, at most so many; equal ones by files and name.
    std::vector<Group> largest(std::size_t most) const;

private:
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;  // NOLINT(readability-identifier-naming)
    };
    std::unordered_map<std::string, Sum, Hash, std::equal_to<>> sums_;
};

/// Tells files that were met by another of their names. Keeps only what has several.
class LinkedFiles {
public:
    /// `followsLinks`: a file may be met again by the same name, so all are kept.
    explicit LinkedFiles(bool followsLinks) : all_(followsLinks) {}

    /// Whether `isFirst` must know which file it is. Where the number of names is unknown, it must.
    bool asks(const FileDetails& file) const;
    bool isFirst(const FileDetails& file);

private:
    bool all_;
    std::set<std::pair<unsigned long long, unsigned long long>> met_;  // device and inode
};

}  // namespace fscan
