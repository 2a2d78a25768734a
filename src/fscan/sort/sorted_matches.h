#pragma once

#include <string>
#include <vector>

#include "fscan/match/match.h"
#include "fscan/process/scratch_file.h"
#include "fscan/sort/memory_sorter.h"
#include "fscan/sort/sort_order.h"

namespace fscan {

/// Where matches are sorted: in a file only what memory should not hold, or all of them.
enum class SortPlace { memory, file };

/// Collects matches and passes them on in order.
///
/// They are sorted in memory. When they are more than memory should hold, those collected
/// so far go to a temporary file as a sorted run; at the end the runs are merged. The order
/// is total, and so the same either way.
class SortedMatches : public MatchSink {
public:
    SortedMatches(const SortOrder& order, SortPlace place);

    /// False when the temporary file cannot be written.
    bool take(const Match& match) override;
    /// Passes all matches to `to` until it wants no more, and forgets them. False
    /// when the temporary file could not be written or read.
    [[nodiscard]] bool deliver(MatchSink& to);

private:
    bool writeRun();
    bool mergeRuns(MatchSink& to);

    SortOrder order_;
    SortPlace place_;
    MemorySorter memory_;
    ScratchFile file_;
    std::vector<off_t> runEnds_;  // in the file, where they follow each other
    bool failed_ = false;
};

}  // namespace fscan
