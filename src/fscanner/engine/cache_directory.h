#pragma once

#include <string>

#include "fscanner/export.h"

namespace fscanner {

/// Where the caches of this user lie unless a host chooses another place: below
/// $XDG_CACHE_HOME/fscanner, or ~/.cache/fscanner. The environment is not asked in a
/// process whose privileges were raised, nor by root for a place of another user. Empty when
/// there is no such place.
FSCANNER_EXPORT std::wstring fsDefaultCacheDirectory();

/// Makes the directory, its parents too, readable by this user alone, and tags it as
/// one that backups may leave out. False when it cannot be made, belongs to another
/// user, or may be written by one: others could decide what is found.
FSCANNER_EXPORT bool fsPrepareCacheDirectory(const wchar_t* directory);

/// The names of a cache's tables. They differ with what the tables' bytes depend on
/// besides the files: the encoding of numbers, the locale's idea of characters, and
/// whether large files are examined.
struct FSCANNER_EXPORT FsCacheTableNames {
    std::wstring directories;  ///< of the table of directories
    std::wstring files;        ///< of the table of files
};
/// The names for the locale and the large-file support in force.
FSCANNER_EXPORT FsCacheTableNames fsCacheTableNames(bool compressed);

}  // namespace fscanner
