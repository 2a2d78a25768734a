#pragma once

#include <sys/stat.h>
#include <unistd.h>

namespace fscanner {

/// Why what `info` tells of is not to be trusted: only root and this user may own it or
/// write to it. Null where it is.
inline const char* ownershipProblem(const struct stat& info) {
    if (info.st_uid != 0 && info.st_uid != ::geteuid())
        return "belongs neither to root nor to the user";
    return (info.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? "can be written by others" : nullptr;
}

}  // namespace fscanner
