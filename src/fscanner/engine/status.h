#pragma once

#include "fscanner/engine/cache.h"

namespace fscanner {

/// How an operation of the cache or a query ended. Inside the library this is passed around;
/// `codeOf` makes the number for the host, once, where the operation returns to it.
enum class [[nodiscard]] Status : int{
    success = FS_CACHE_SUCCESS,
    unusable = FS_CACHE_UNUSABLE,
    queryTimedOut = FS_CACHE_QUERY_TIMED_OUT,
    buildTimedOut = FS_CACHE_BUILD_TIMED_OUT,
    noDrive = FS_CACHE_NO_DRIVE,
    noFileProgram = FS_CACHE_NO_FILE_PROGRAM,
    needsChange = FS_CACHE_NEEDS_CHANGE,
    alreadyOpened = FS_CACHE_ALREADY_OPENED,
    lockTimedOut = FS_CACHE_LOCK_TIMED_OUT,
    failure = FS_CACHE_FAILURE,
};

/// The `FsCacheStatus` of a status.
constexpr int codeOf(Status status) {
    return static_cast<int>(status);
}

}  // namespace fscanner
