#pragma once

namespace fscanner {
class FsQuery;
}

namespace fscan {

struct Asking;
class Output;

/// Prints how the query would be run. The exit status.
int explainQuery(const Asking& asking, const fscanner::FsQuery& query, Output& out);

}  // namespace fscan
