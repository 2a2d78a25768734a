#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fscanner/discovery/drive_info.h"
#include "fscanner/discovery/path_info.h"
#include "fscanner/platform/real_path.h"

namespace fscanner {

/// A path entry of a query, `[media::][drive:]path`, parsed into the drives that it admits and
/// an absolute path.
struct PathEntry {
    std::wstring text;       ///< as written
    unsigned mask = 0;       ///< mask of the admitted drive types
    std::wstring driveName;  ///< the only admitted drive; empty: any drive of these types
    bool valid = true;       ///< false if the drive prefix is unknown
    bool knownMedia = true;  ///< false if the media is unknown: the entry admits no drive
    std::wstring path;       ///< absolute; empty if none was given
    bool recursive = false;
};

/// The absolute path of an entry, whatever drives it admits. Symbolic links are resolved where
/// `mayTouch` allows it. Empty if the entry has no path.
std::wstring realPathOf(const PathInfo& entry, const LinkGuard& mayTouch = touchesAll);

/// Parses an entry. `drives` are the drives that a prefix may name. Symbolic links are resolved
/// where `mayTouch` allows it. Nothing for an entry without a text.
std::optional<PathEntry> parsePathEntry(const PathInfo& entry, const std::vector<DriveInfo>& drives,
                                        const LinkGuard& mayTouch = touchesAll);

/// The implementation of `PathHelper::expand_path_variable`, which documents it: copies `source`
/// into `destination` and expands %NAME% references.
int expandPathVariables(const wchar_t* source, wchar_t* destination, unsigned limit);

}  // namespace fscanner
