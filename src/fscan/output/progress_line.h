#pragma once

#include <string>
#include <string_view>

namespace fscanner {
struct FsScanProgress;
}

namespace fscan {

/// One line on standard error that tells how far a scan is, or that the program waits. It
/// must be erased before anything else is written. Where standard error is no terminal, only
/// a wait is told, once.
class ProgressLine {
public:
    explicit ProgressLine(bool quiet);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() { erase(); }

    /// Updates the line, but not in the first moments of a scan and not too often.
    void show(const fscanner::FsScanProgress& progress);
    /// Tells that another process has the cache.
    void showWaiting(unsigned milliseconds);
    void erase();

private:
    /// Writes the ASCII text and the end of the directory, as much of them as fits.
    void put(std::string_view text, const std::wstring& directory);

    bool quiet_;
    bool terminal_;
    bool shown_ = false;
    bool reported_ = false;  ///< the wait was told, where standard error is no terminal
    unsigned shownAt_ = 0;   ///< milliseconds of the scan
};

}  // namespace fscan
