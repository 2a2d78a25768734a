#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fscan {

struct Options;

/// One directory to search: the user's text and what it really is.
struct SearchRoot {
    std::string given;
    std::wstring media;               ///< the drive group it began with, as in "$local", or empty
    std::wstring real;                ///< absolute, without links, no "/" at its end
    std::vector<std::wstring> inner;  ///< other roots below it, which report their own

    /// Whether this root answers for a directory at or below it.
    bool owns(std::wstring_view directory) const;
    /// The directory as the user wrote it: what the given text became below.
    std::string shown(std::wstring_view directory) const;
    void appendShown(std::wstring_view directory, std::string& text) const;
};

/// The PATHs of the command line. A directory that is given twice is searched
/// once, with two drive groups on drives of every group; of nested ones, each
/// reports what lies below it and below no other. A group alone stands for "/".
struct SearchRoots {
    std::vector<SearchRoot> roots;
    bool wrong = false;       ///< a PATH does not exist or is no directory
    bool incomplete = false;  ///< a PATH cannot be reached

    static SearchRoots resolve(const Options& options);
};

}  // namespace fscan
