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
    /// Whether a command could not be run, ended with another status than 0, or could not
    /// be told of a match.
    bool failed() const override { return notRun_ || failures_ > 0 || leftOut_ > 0; }

private:
    using Words = std::vector<std::string>;

    bool consume(const Match& match) override;
    bool fits(const Words& words, std::size_t room) const;
    bool leaveOut(const std::string& path);
    bool runBatch();
    bool run(const Words& words);

    Words words_;
    Output& out_;
    bool batch_;
    Words waiting_;  // paths of a batch
    std::size_t waitingBytes_ = 0;
    std::size_t room_;         // for the paths among the arguments of a command
    std::size_t allRoom_ = 0;  // for all of them
    std::size_t wordRoom_;     // for one of them
    unsigned long long runs_ = 0;
    unsigned long long failures_ = 0;
    unsigned long long leftOut_ = 0;
    bool notRun_ = false;  // the last one could not be started
};

}  // namespace fscan
