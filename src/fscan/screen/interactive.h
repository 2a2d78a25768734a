#pragma once

#include "fscan/process/exit_status.h"

namespace fscan {

class Output;
struct Options;

/// Searches as the user types, and prints what was chosen. `nothingFound` if nothing was.
ExitStatus runInteractive(const Options& options, Output& out);

}  // namespace fscan
