#pragma once

#include <dirent.h>

namespace fscanner {

/// Opens and closes a directory, which makes an automounter mount what belongs there.
/// False when it cannot be opened. Waits for the automounter.
bool accessMountPath(const char* path);

/// Opens and closes the directory of every placeholder mount, and of no other,
/// which makes the automounter mount what the placeholder stands for.
void accessToAllMountPaths();

/// The deeper form: also reads every directory in `dir`, whose path is `base`.
/// The caller keeps `dir` and closes it.
void accessToAllMountPathsRead(DIR* dir, const char* base);

}  // namespace fscanner
