#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "fscanner/fs/fs_scan_observer.h"

namespace fscan {

struct Options;

/// What a search met, all its parts together: how much was walked, what was not, and
/// what a cache answered.
struct Completeness {
    struct Skipped {
        std::string path;  ///< as the user is to see it
        fscanner::FsSkipReason reason;
        int error;   ///< errno
        bool named;  ///< the user has been told
    };
    struct Cached {
        std::string path;
        unsigned ageSeconds;
    };

    unsigned walks = 0;
    unsigned long long files = 0;
    unsigned long long directories = 0;
    std::vector<Skipped> skipped;
    std::vector<Cached> cached;
    std::vector<std::string> timedOut;

    void addWalk(const fscanner::FsScanProgress& totals);
};

/// The end of a search.
struct Outcome {
    unsigned long long matches = 0;
    int status = 0;
    std::chrono::steady_clock::duration time{};
};

/// Tells on standard error, as the options ask, what a search found, what it took, and
/// what was left out. False, with a message, when the summary cannot be written.
bool report(const Options& options, const Completeness& search, const Outcome& outcome);

}  // namespace fscan
