#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/discovery/path_relation.h"

namespace fscanner {

/// Same drive type and file system: a scan goes from one such drive into the other.
bool sameKind(const DriveInfo& a, const DriveInfo& b);

/// Where drives begin. Answers by literal paths, in a time that hardly grows with the
/// number of drives. Placeholders of an automounter take part as drives of the type
/// `DRIVE_UNKNOWN`, and so are of no other drive's kind.
class MountMap {
public:
    MountMap() = default;
    /// `drives` as `normaliseDriveList` leaves them: none hides another.
    explicit MountMap(const std::vector<DriveInfo>& drives);

    /// Whether a scan that comes from `drive` stops before the directory `path`: a drive
    /// of another kind begins there.
    bool stops(std::wstring_view path, const DriveInfo& drive) const;
    /// Whether a scan of `pair` comes to `path`, which is its own or lies below it.
    bool reaches(const PathDrive& pair, std::wstring_view path) const;
    /// Where the scan of a pair stops, by path.
    std::vector<std::wstring> stopsInside(const PathDrive& pair) const;
    /// Whether any drive begins below `path`.
    bool hasInside(std::wstring_view path) const;
    /// The drive that holds `path`; null when none does.
    const DriveInfo* holding(std::wstring_view path) const;

private:
    using Drives = std::multimap<std::wstring, DriveInfo, std::less<>>;

    /// By the mount directory without a final "/". What lies below one follows it, with
    /// nothing else between: all of it begins with that text and a "/".
    Drives drives_;
};

/// Tells which pairs of a list the scan of an enclosing pair reaches anyway.
class CoveredPairs {
public:
    /// `drives` as for a `MountMap`.
    explicit CoveredPairs(const std::vector<DriveInfo>& drives) : mounts_(drives) {}

    /// Called with enclosing pairs first. Keeps the addresses of those that it is asked about.
    bool operator()(const PathDrive& pair);

private:
    bool reaches(const PathDrive& cover, const PathDrive& pair) const;

    MountMap mounts_;
    std::map<std::wstring_view, std::vector<const PathDrive*>> covers_;
};

}  // namespace fscanner
