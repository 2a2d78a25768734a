#pragma once

#include "fscan/match/match.h"
#include "fscan/sum/sums.h"

namespace fscan {

struct Options;

/// Decides what of a file counts, and how much of it must be known.
class FileCount {
public:
    /// `cached`: the answer may come from a cache.
    FileCount(const Options& options, bool cached);

    /// Whether the size, and what tells hard links apart, must be asked of the system.
    bool lacks(const FileDetails& file) const;
    /// Whether the file counts: it was not met by another name.
    bool admits(const FileDetails& file);
    unsigned long long bytesOf(const FileDetails& file) const {
        return allocated_ ? file.allocated : file.size;
    }
    /// Whether sizes were taken from the cache, where nothing tells hard links apart.
    bool usedCache() const { return usedCache_; }
    bool usesCache() const { return usesCache_; }
    const char* measure() const { return allocated_ ? "allocated" : "apparent"; }
    /// Says on standard error what is not as it should be.
    void tell(bool quiet) const;

private:
    bool allocated_;
    bool usesCache_;
    bool usedCache_ = false;
    unsigned long long unexamined_ = 0;
    LinkedFiles linked_;
};

}  // namespace fscan
