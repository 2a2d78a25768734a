#pragma once

namespace fscanner {
class FsQuery;
}

namespace fscan {

struct Asking;
class Output;
struct Options;

/// Prints how the queries of a search would be run, one for each root, and with the last
/// one the criteria.
class Explanation {
public:
    Explanation(const Options& options, const Asking& asking, Output& out)
        : options_(options), asking_(asking), out_(out) {}

    /// Returns the exit status.
    int add(const fscanner::FsQuery& query, bool last);

private:
    const Options& options_;
    const Asking& asking_;
    Output& out_;
    bool fromCache_ = false;  ///< a part of the answer
};

}  // namespace fscan
