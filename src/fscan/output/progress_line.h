#pragma once

#include <string>
#include <string_view>

namespace fscanner {
struct FsScanProgress;
}

namespace fscan {

/// One line on standard error that tells how far a scan is, or what is waited for. It
/// goes before anything else is written. Where that is no terminal, the wait alone is
/// told, once.
class ProgressLine {
public:
    explicit ProgressLine(bool quiet);
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;
    ~ProgressLine() { erase(); }

    /// Shows it, but not in the first moments of a scan and not too often.
    void show(const fscanner::FsScanProgress& progress);
    /// Says that another process has the cache.
    void showWaiting(unsigned milliseconds);
    void erase();

private:
    /// ASCII, as far as it fits, and as much of the directory's end as fits behind it.
    void put(std::string_view text, const std::wstring& directory);

    bool quiet_;
    bool terminal_;
    bool shown_ = false;
    bool told_ = false;     ///< of a wait, to what is no terminal
    unsigned shownAt_ = 0;  ///< milliseconds of the scan
};

}  // namespace fscan
