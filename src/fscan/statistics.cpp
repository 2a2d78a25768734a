#include "statistics.h"

#include <fmt/format.h>
#include <unistd.h>

#include "fscanner/fs/fs_scan_observer.h"
#include "output.h"

namespace fscan {

namespace {

const char* source(const Walked& walked, bool cached) {
    if (walked.walks == 0) return cached ? "the cache" : "nothing";
    return cached ? "a scan, kept in the cache where it is local" : "a scan";
}

}  // namespace

void Walked::add(const fscanner::FsScanProgress& totals) {
    ++walks;
    files += totals.files;
    directories += totals.directories;
}

void showStatistics(unsigned long long matches, const Walked& walked, bool cached,
                    std::chrono::steady_clock::duration time) {
    Output err(STDERR_FILENO);
    err.write(fmt::format(
        "matches:  {}\nwalked:   {} files, {} directories\ntime:     {:.3f} s\nfrom:     {}\n",
        matches, walked.files, walked.directories, std::chrono::duration<double>(time).count(),
        source(walked, cached)));
    err.flush();
}

}  // namespace fscan
