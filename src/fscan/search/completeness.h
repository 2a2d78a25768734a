#pragma once

#include <chrono>
#include <optional>
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
    unsigned long long undecided = 0;  ///< files that the criteria has no answer for

    void addWalk(const fscanner::FsScanProgress& totals);
    /// Whether something was not searched that is there and that nobody forbids.
    bool systemFailed() const;
};

/// The end of a search.
struct Outcome {
    unsigned long long matches = 0;
    /// Files that were left out when it came to telling of them or running commands: they are
    /// there no more, are others by now, or what they had to be tested for could not be read.
    unsigned long long gone = 0;
    unsigned long long changed = 0;
    unsigned long long unexamined = 0;
    int status = 0;            ///< of the program, or 128 and the signal that ends it
    bool cut = false;          ///< it ended before all was searched, as nobody wanted more
    bool interrupted = false;  ///< by a signal
    std::chrono::steady_clock::duration time{};
};

/// Tells on standard error, as the options ask, what a search found, what it took, and
/// what was left out.
void tell(const Options& options, const Completeness& search, const Outcome& outcome);

/// The JSON object that says how complete an answer is, for programs.
class Summary {
public:
    /// Empties its file, where it goes to one: no run leaves that of an earlier one.
    explicit Summary(const Options& options);

    /// Whether one is wanted.
    bool wanted() const { return wanted_; }
    /// Whether its file, if any, can be written; a message has been given where not.
    bool writable() const { return writable_; }
    void write(const Completeness& search, const Outcome& outcome);
    /// Whether that was done, or not wanted.
    bool written() const { return written_ || !wanted_; }

private:
    const std::optional<std::string>& file_;
    bool wanted_;
    bool writable_ = true;
    bool written_ = false;
};

}  // namespace fscan
