#pragma once

#include <memory>

#include "fscan/match/match.h"
#include "fscan/records/record_form.h"

namespace fscan {

class Output;
struct Options;

/// Prints the matches in the chosen form, or their number.
class RecordPrinter : public MatchConsumer {
public:
    RecordPrinter(const Options& options, std::unique_ptr<RecordForm> form, Output& out);

    /// What comes after the last match.
    void finish() override;

private:
    /// False once the output has failed.
    bool consume(const Match& match) override;

    std::unique_ptr<RecordForm> form_;
    Output& out_;
    bool countOnly_;
};

}  // namespace fscan
