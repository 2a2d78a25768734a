#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/discovery/path_resolver.h"

namespace fscanner {

/// Whether both drives have the same drive type and file-system type. A scan crosses the mount
/// point between two such drives.
bool sameKind(const DriveInfo& a, const DriveInfo& b);

/// The mount points, looked up by path. Paths are compared literally, not as patterns. A look-up
/// takes a time logarithmic in the number of drives. Placeholders of an automounter are drives of
/// the type `DRIVE_UNKNOWN`; so their kind differs from the kind of all other drives.
class MountMap {
public:
    MountMap() = default;
    /// `drives` must be normalised by `normaliseDriveList`, so that none hides another.
    explicit MountMap(const std::vector<DriveInfo>& drives);

    /// The same map for a scan that crosses no mount point at all.
    MountMap withoutCrossing() const {
        MountMap map = *this;
        map.crosses_ = false;
        return map;
    }
    /// Whether a scan of `drive` must not enter the directory `path`, because a drive of
    /// another kind is mounted there.
    bool stops(std::wstring_view path, const DriveInfo& drive) const;
    /// Whether a scan of `pair` gets as far as `path`, which is the pair's path or lies below
    /// it.
    bool reaches(const PathDrive& pair, std::wstring_view path) const;
    /// The mount points below the pair's path at which its scan stops, ordered by path.
    std::vector<std::wstring> stopsInside(const PathDrive& pair) const;
    /// Whether any mount point lies below `path`.
    bool hasInside(std::wstring_view path) const;
    /// The drive on which `path` lies; null if there is none. Valid as long as the map.
    const DriveInfo* holding(std::wstring_view path) const;

private:
    using Drives = std::multimap<std::wstring, DriveInfo, std::less<>>;

    /// Key: the mount directory without a final "/". The mount points below a directory are
    /// neighbours in this order, because all of them begin with the directory and "/".
    Drives drives_;
    bool crosses_ = true;  // to drives of the same kind

    bool isStop(const DriveInfo& mounted, const DriveInfo& drive) const {
        return !crosses_ || !sameKind(mounted, drive);
    }
};

/// Finds the pairs of a list that are covered, which means that the scan of an enclosing pair
/// reaches them anyway.
class CoveredPairs {
public:
    /// `drives` as for `MountMap`.
    explicit CoveredPairs(const std::vector<DriveInfo>& drives) : mounts_(drives) {}

    /// Whether the pair is covered. Must be called with enclosing pairs first. Keeps pointers to
    /// the pairs, which must therefore outlive this object.
    bool operator()(const PathDrive& pair);

private:
    bool reaches(const PathDrive& cover, const PathDrive& pair) const;

    MountMap mounts_;
    std::map<std::wstring_view, std::vector<const PathDrive*>> covers_;
};

}  // namespace fscanner
