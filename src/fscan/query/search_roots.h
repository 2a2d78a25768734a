#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fscan {

struct Options;

/// Drive groups, as bits.
enum DriveGroups : unsigned { otherDrives = 0, localDrives = 1, remoteDrives = 2, allDrives = 3 };

/// One directory to search: the user's text and what it really is.
struct SearchRoot {
    std::string given;
    unsigned drives = allDrives;      ///< the `DriveGroups` to search
    std::wstring real;                ///< absolute, without links, no "/" at its end
    std::vector<std::wstring> inner;  ///< other roots below it, which report their own
    bool half = false;                ///< of a PATH that became two roots, one for each group

    /// Whether this root answers for a directory at or below it.
    bool owns(std::wstring_view directory) const;
    /// The directory as the user wrote it: what the given text became below.
    std::string shown(std::wstring_view directory) const;
    void appendShown(std::wstring_view directory, std::string& text) const;
};

/// The PATHs of the command line. A directory that is given twice is searched once, on
/// the drives of both groups. Of nested ones, each reports what lies below it and below
/// no other that searches the same drives: where the inner one searches fewer, the outer
/// one becomes two, one for each group. A group alone stands for "/".
struct SearchRoots {
    std::vector<SearchRoot> roots;
    bool wrong = false;       ///< nothing is to be searched: no PATH exists and is a directory
    bool incomplete = false;  ///< a PATH cannot be searched, but others can

    static SearchRoots resolve(const Options& options);
    /// Where a directory really is that is shown as `shown`.
    std::wstring realOf(const std::string& shown) const;
};

}  // namespace fscan
