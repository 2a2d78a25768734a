#pragma once

namespace fscanner {
class FsQuery;
}

namespace fscan {

struct Asking;
class Output;
struct Options;

/// Prints how the query would be run; its criteria only where they are wanted. The exit
/// status.
int explainQuery(const Options& options, const Asking& asking, const fscanner::FsQuery& query,
                 bool withCriteria, Output& out);

}  // namespace fscan
