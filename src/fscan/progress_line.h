#pragma once

#include <cstddef>

namespace fscanner {
struct FsScanProgress;
}

namespace fscan {

/// One line on standard error that tells how far a scan is; nothing where that is no
/// terminal. It goes before anything else is written.
class ProgressLine {
public:
    explicit ProgressLine(bool quiet);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() { erase(); }

    /// Shows it, but not in the first moments of a scan and not too often.
    void show(const fscanner::FsScanProgress& progress);
    void erase();

private:
    bool terminal_;
    bool shown_ = false;
    unsigned shownAt_ = 0;  ///< milliseconds of the scan
};

}  // namespace fscan
