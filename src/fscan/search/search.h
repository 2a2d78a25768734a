#pragma once

namespace fscan {

class Output;
struct Options;

/// Runs the search that the options describe; returns the exit status.
int runSearch(const Options& options, Output& out);

}  // namespace fscan
