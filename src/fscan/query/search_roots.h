#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fscan/process/exit_status.h"
#include "fscanner/discovery/drive_info.h"

namespace fscan {

class Output;
struct Options;

/// Drive groups, as bits.
enum DriveGroups : unsigned { otherDrives = 0, localDrives = 1, remoteDrives = 2, allDrives = 3 };

/// One directory to search.
struct SearchRoot {
    std::string given;                ///< as the user wrote it
    unsigned drives = allDrives;      ///< the `DriveGroups` to search
    std::wstring real;                ///< absolute, without links, no "/" at its end
    std::vector<std::wstring> inner;  ///< other roots below it, which report their own
    bool half = false;                ///< this is one of two roots made of a PATH

    /// Whether this root reports a directory at or below it, and no inner root does.
    bool owns(std::wstring_view directory) const;
    /// The path of the directory as the user is to see it: below the given text.
    std::string shown(std::wstring_view directory) const;
    void appendShown(std::wstring_view directory, std::string& text) const;
};

/// The PATHs of the command line. A directory that is given twice is searched once, on the
/// drives of both groups. Of nested directories, each file is reported once, by the innermost
/// one that searches its drive: where an inner one searches fewer drives, the outer one is
/// split into two roots, for local and for remote drives. A group alone stands for "/".
struct SearchRoots {
    std::vector<SearchRoot> roots;
    bool wrong = false;       ///< no PATH is an existing directory: nothing is searched
    bool incomplete = false;  ///< some PATHs cannot be searched

    static SearchRoots resolve(const Options& options);
    /// The real path of the directory that the user sees as `shown`.
    std::wstring realOf(const std::string& shown) const;
};

/// The mounted file systems, in the mount table's order.
class DriveList {
public:
    /// Nothing, with a message, where the mount table cannot be read.
    static std::optional<DriveList> read();

    const std::vector<fscanner::DriveInfo>& all() const { return drives_; }
    /// The drive that the absolute, link-free path lies on; null where none does.
    const fscanner::DriveInfo* of(std::wstring_view path) const;
    bool isMountPoint(std::wstring_view path) const;

private:
    std::vector<fscanner::DriveInfo> drives_;
};

/// The drive's name without the ":" at its end.
std::wstring_view mountDirectory(const fscanner::DriveInfo& drive);

/// "local", "remote" or "other".
const char* typeName(fscanner::DriveType type);

/// Prints the chosen group's drives in columns.
ExitStatus listDrives(const Options& options, Output& out);

}  // namespace fscan
