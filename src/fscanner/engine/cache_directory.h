#pragma once

#include <string>

#include "fscanner/export.h"

namespace fscanner {

class FsConfig;

/// Where the caches of this user lie unless a host chooses another place: below
/// $XDG_CACHE_HOME/fscanner, or ~/.cache/fscanner. The environment is not asked in a
/// process whose privileges were raised, nor by root for a place of another user. Empty when
/// there is no such place.
FSCANNER_EXPORT std::wstring fsDefaultCacheDirectory();

/// Makes the directory, its parents too, readable by this user alone, and tags it as
/// one that backups may leave out. False when that fails, or when it is no place for a cache:
///
/// - A component of the path, or a link on it, belongs neither to root nor to the user, or may
///   be written by others and is not sticky: others could decide what is found. They are
///   looked at before anything is made below them. The user's own group is none of the
///   others where nobody else is in it.
/// - The directory has no tag of fscanner, and holds something that is not a cache's.
FSCANNER_EXPORT bool fsPrepareCacheDirectory(const wchar_t* directory);

/// The same; where it returns false, `problem` says which rule failed, on which component
/// of the path. It is left alone otherwise.
FSCANNER_EXPORT bool fsPrepareCacheDirectory(const wchar_t* directory, std::wstring& problem);

/// Whether `fsPrepareCacheDirectory` would refuse the path as it is, with nothing made.
FSCANNER_EXPORT bool fsCheckCacheDirectory(const wchar_t* directory, std::wstring& problem);

/// Where and how a cache is kept, as the section "provider_cache" of the settings says.
struct FSCANNER_EXPORT FsCacheSettings {
    std::wstring directory;        ///< absolute; empty: the user's own, `fsDefaultCacheDirectory`
    bool monitored = false;        ///< trees of the cache are used at any age, and none is built
    bool compressed = false;       ///< numbers take as many bytes as they need
    unsigned long long limit = 0;  ///< of the cache's size, in bytes; 0: none
    bool fresh = false;            ///< no answer comes from the cache; no key of the section
    int wait = 60000;              ///< for others, in milliseconds; no key of the section

    /// Sets one of them by its key, an `FS_OPTION_...` of fs_provider.h: an absolute path, a size
    /// such as "500M", or "true", "1", "false" or "0", or a number of milliseconds. False, and
    /// nothing changes, for any other key or value, null included.
    bool set(const char* key, const char* value);
};
/// Reads the settings of a cache. What cannot be used is left at its default, and named
/// in `error` unless that is null: "KEY: VALUE is ...".
FSCANNER_EXPORT FsCacheSettings fsCacheSettings(const FsConfig& config,
                                                std::string* error = nullptr);

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
