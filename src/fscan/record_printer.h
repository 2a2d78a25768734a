#pragma once

#include <memory>

#include "match.h"
#include "record_form.h"

namespace fscan {

class Output;
struct Options;

/// Prints the matches in the chosen form and counts them, up to the limit.
class RecordPrinter : public MatchConsumer {
public:
    RecordPrinter(const Options& options, std::unique_ptr<RecordForm> form, Output& out);

    /// False once the output has failed or the limit is reached.
    bool take(const Match& match) override;
    /// What comes after the last match.
    void finish() override;
    bool failed() const override { return false; }
    unsigned long long count() const override { return count_; }

private:
    std::unique_ptr<RecordForm> form_;
    Output& out_;
    bool countOnly_;
    unsigned long long limit_;
    unsigned long long count_ = 0;
};

}  // namespace fscan
