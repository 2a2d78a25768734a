#pragma once

#include <memory>

#include "fscan/match/match.h"
#include "fscan/sort/memory_sorter.h"
#include "fscan/sort/sort_order.h"
#include "fscan/sort/spill_file.h"

namespace fscan {

/// Collects matches and hands them on in order: from memory as long as they fit,
/// else from a temporary file. The order is total, and so the same either way.
class SortedMatches : public MatchSink {
public:
    static constexpr std::size_t memoryBound = std::size_t{256} << 20;

    /// `bound` is the memory, in bytes; with 0 everything goes to the file.
    explicit SortedMatches(SortOrder order, std::size_t bound = memoryBound);

    /// False when the temporary file cannot be written.
    bool take(const Match& match) override;
    /// Hands all matches to `to` until it wants no more, and forgets them. False
    /// when the temporary file was not written or sorted completely.
    [[nodiscard]] bool deliver(MatchSink& to);
    bool failed() const { return failed_; }

private:
    bool spill();
    bool deliverSpilled(MatchSink& to);

    SortOrder order_;
    std::size_t bound_;
    MemorySorter memory_;  // with a file: what does not fit into its records
    std::unique_ptr<SpillFile> file_;
    bool failed_ = false;
};

}  // namespace fscan
