#pragma once

#include <string>
#include <vector>

#include "fscanner/export.h"

namespace fscanner {

class FsConfig;

/// The default directory for the cache of this user: below $XDG_CACHE_HOME/fscanner, or
/// ~/.cache/fscanner. The environment is ignored in a process with raised privileges. Root also
/// ignores it if another user could exchange the directory that it names. Empty if there is no
/// such directory, or without memory. Creates nothing. Throws nothing. Any thread.
FSCANNER_EXPORT std::wstring fsDefaultCacheDirectory();

/// Creates the directory and its missing parents, readable by this user alone, and writes a
/// CACHEDIR.TAG into it, so that backups may leave it out. False if that fails, for a null path, or
/// if the directory must not hold a cache:
///
/// - Another user could exchange the cache, and so decide what a search finds. That is so if a
///   component of the path, or a link on it, belongs neither to root nor to this user, or if
///   other users may write to it and it is not sticky. A group with this user as its only member
///   does not count as other users. Each component is checked before anything is created below.
/// - The directory has no tag of fscanner, and contains files that do not belong to a cache.
///
/// Throws nothing. Any thread.
FSCANNER_EXPORT bool fsPrepareCacheDirectory(const wchar_t* directory);

/// The same. If it returns false, `problem` is set to a text that names the rule and the component
/// of the path. Otherwise `problem` stays as it is.
FSCANNER_EXPORT bool fsPrepareCacheDirectory(const wchar_t* directory, std::wstring& problem);

/// Whether `fsPrepareCacheDirectory` would accept the path, without creating anything. If not,
/// `problem` is set as above. Throws nothing. Any thread.
FSCANNER_EXPORT bool fsCheckCacheDirectory(const wchar_t* directory, std::wstring& problem);

/// The settings of a cache: the keys of the section "provider_cache", and two options that only a
/// host can set.
struct FSCANNER_EXPORT FsCacheSettings {
    std::wstring directory;        ///< absolute path; empty: `fsDefaultCacheDirectory`
    bool monitored = false;        ///< trees of the cache are used at any age, and none is built
    bool compressed = false;       ///< tables store numbers in as few bytes as they need
    bool verify = false;           ///< trees are compared with the disk before they answer
    unsigned long long limit = 0;  ///< size limit of the cache in bytes; 0: no limit
    bool fresh = false;            ///< no answer comes from the cache; not a key of the section
    int wait = 60000;              ///< longest wait for the lock, in ms; not a key of the section

    /// Sets one setting by its key, an `FS_OPTION_...` of fs_provider.h. Depending on the key, the
    /// value is an absolute path, a size such as "500M", a number of milliseconds, or "true",
    /// "1", "false" or "0". False, and nothing changes, for any other key or value, also for
    /// null. Throws nothing.
    bool set(const char* key, const char* value);
};
/// Reads the settings of a cache. An invalid value leaves the default in place. The first such
/// value is described in `error`, unless `error` is null: "KEY: VALUE is ...". Throws
/// `std::bad_alloc`.
FSCANNER_EXPORT FsCacheSettings fsCacheSettings(const FsConfig& config,
                                                std::string* error = nullptr);

/// The names of a cache's tables. Processes that would store different bytes for the same files use
/// different names. The names therefore depend on the encoding of numbers, the locale's character
/// encoding, and large-file support.
struct FSCANNER_EXPORT FsCacheTableNames {
    std::wstring directories;  ///< name of the table of directories
    std::wstring files;        ///< name of the table of files
};
/// The names for the current locale and large-file support. Throws `std::bad_alloc`.
FSCANNER_EXPORT FsCacheTableNames fsCacheTableNames(bool compressed);

/// The paths of the files of all caches in the directory, which are one for each
/// `FsCacheTableNames` that was used. Files that a rebuild was to put in their places are among
/// them; the tag, the lock's file, whatever is no regular file and what others put there are not.
/// Empty where the directory cannot be read, and for null. A process that does not have the lock
/// may find some of them gone.
FSCANNER_EXPORT std::vector<std::wstring> fsCacheFiles(const wchar_t* directory);

/// The paths of the tag and of the lock's file, in this order, whether they are there or not:
/// what makes the directory one of caches, and may be removed when it has none. Those of the files
/// of a watch follow, unless there is one.
FSCANNER_EXPORT std::vector<std::wstring> fsCachePlaceFiles(const wchar_t* directory);

/// Whether an `FsCacheWatch` keeps a cache in the directory current. False for null, and where that
/// cannot be told. Throws nothing. Any thread.
FSCANNER_EXPORT bool fsCacheIsWatched(const wchar_t* directory);

/// Whether the cache with these tables is being changed, or the last change did not come to its
/// end: the next search repairs the cache. True also where that cannot be told, false for null.
FSCANNER_EXPORT bool fsCacheIsMarked(const wchar_t* directory, const FsCacheTableNames& tables);

}  // namespace fscanner
