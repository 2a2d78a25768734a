#pragma once

#include "fscan/process/exit_status.h"

namespace fscan {

struct Options;

/// Keeps the trees of the PATHs current in the cache until a signal ends it. Says nothing but what
/// cannot be watched. A service manager is told when the trees are up to date.
ExitStatus runWatch(const Options& options);

}  // namespace fscan
