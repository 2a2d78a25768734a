#pragma once

#include <string>
#include <vector>

#include "match.h"

namespace fscan {

class Output;
struct Options;

/// Runs a command, without a shell, for each match or for many at a time. "{}" in its
/// words is the path, which comes last where it is nowhere.
class CommandRunner : public MatchConsumer {
public:
    CommandRunner(const Options& options, Output& out);

    /// Runs what is left, and tells how many runs failed.
    void finish() override;
    /// Whether a command could not be run, or ended with another status than 0.
    bool failed() const override { return notRun_ || failures_ > 0; }

private:
    using Words = std::vector<std::string>;

    bool consume(const Match& match) override;
    bool runBatch();
    bool run(const Words& words);

    Words words_;
    Output& out_;
    bool batch_;
    Words waiting_;  // paths of a batch
    std::size_t waitingBytes_ = 0;
    std::size_t room_;  // for the arguments of a command
    unsigned long long runs_ = 0;
    unsigned long long failures_ = 0;
    bool notRun_ = false;  // the last one could not be started
};

}  // namespace fscan
