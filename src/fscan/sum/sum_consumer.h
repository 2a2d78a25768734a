#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fscan/match/match.h"
#include "fscan/sum/file_count.h"
#include "fscan/sum/grouping.h"
#include "fscan/sum/sums.h"

namespace fscan {

class Output;
struct Options;

/// Adds the matches up in groups, and prints the sums.
class SumConsumer : public MatchConsumer {
public:
    /// `roots`: the PATHs as the paths of matches begin. `cached`: the answer may come from a
    /// cache.
    SumConsumer(const Options& options, std::vector<std::string> roots, bool cached, Output& out);

    bool lacks(const FileDetails& file) const override;
    bool tellsTotals() const override { return true; }
    void finish() override;

private:
    bool admit(const Match& match) override { return count_.admits(*match.details); }
    bool consume(const Match& match) override;

    const Options& options_;
    Output& out_;
    FileCount count_;
    Grouping grouping_;
    std::optional<DirectorySums> directories_;
    Sums groups_;
    Sum total_;
};

}  // namespace fscan
