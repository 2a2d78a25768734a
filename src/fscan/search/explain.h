#pragma once

#include "fscan/process/exit_status.h"

namespace fscanner {
class FsQuery;
}

namespace fscan {

struct ProviderSession;
class Output;
struct Options;

/// Prints how the queries of a search would be run, one for each root, and after the last one
/// the criteria.
class Explanation {
public:
    Explanation(const Options& options, const ProviderSession& session, Output& out)
        : options_(options), session_(session), out_(out) {}

    ExitStatus add(const fscanner::FsQuery& query, bool last);

private:
    const Options& options_;
    const ProviderSession& session_;
    Output& out_;
    bool fromCache_ = false;  ///< a part of the answer comes from the cache
};

}  // namespace fscan
