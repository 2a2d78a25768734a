#pragma once

#include <cstddef>
#include <string_view>

namespace fscanner {

/// How one path lies to another, by whole components.
enum class PathRelation {
    APART,
    SAME,
    INSIDE,  ///< strictly below the other
    AROUND,  ///< strictly above the other
};

/// How `path` lies to `other`. Exact case; a final "/" changes nothing.
PathRelation relatePaths(std::wstring_view path, std::wstring_view other);

/// How many components a path has; 0 for the root.
std::size_t componentCount(std::wstring_view path);

}  // namespace fscanner
