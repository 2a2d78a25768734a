#pragma once

#include <chrono>

namespace fscanner {
struct FsScanProgress;
}

namespace fscan {

/// What the walks of a search met, all together.
struct Walked {
    unsigned walks = 0;
    unsigned long long files = 0;
    unsigned long long directories = 0;

    void add(const fscanner::FsScanProgress& totals);
};

/// Writes to standard error what a search found and what it took.
void showStatistics(unsigned long long matches, const Walked& walked, bool cached,
                    std::chrono::steady_clock::duration time);

}  // namespace fscan
