#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fscanner/discovery/drive_info.h"
#include "fscanner/discovery/path_info.h"
#include "fscanner/platform/real_path.h"

namespace fscanner {

/// A query's path entry, `[media::][drive:]path`, taken apart: which drives it
/// admits, and the absolute path.
struct PathEntry {
    std::wstring text;       ///< as written
    unsigned mask = 0;       ///< the admitted drive types
    std::wstring driveName;  ///< the only drive admitted; empty: any
    bool valid = true;       ///< false for a drive prefix of no known form
    bool knownMedia = true;  ///< false for a group that is none: it admits no drive
    std::wstring path;       ///< empty when none was given
    bool recursive = false;
};

/// The absolute path of an entry, without links where `mayTouch` lets them be read, whatever
/// drives it admits; empty when it has none.
std::wstring realPathOf(const PathInfo& entry, const LinkGuard& mayTouch = touchesAll);

/// Nothing for an entry without a text. `drives` are those a prefix may name. Links are
/// resolved where `mayTouch` lets them be read.
std::optional<PathEntry> parsePathEntry(const PathInfo& entry, const std::vector<DriveInfo>& drives,
                                        const LinkGuard& mayTouch = touchesAll);

/// Copies `source` with its %NAME% references expanded into `destination`, as
/// `PathHelper::expand_path_variable` promises.
int expandPathVariables(const wchar_t* source, wchar_t* destination, unsigned limit);

}  // namespace fscanner
