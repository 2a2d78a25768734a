#pragma once

#include <string>

#include "match.h"

namespace fscan {

class Output;
struct Options;

/// Prints the matches in the chosen form and counts them.
class RecordPrinter : public MatchSink {
public:
    RecordPrinter(const Options& options, Output& out);

    /// False once the output has failed.
    bool take(const Match& match) override;
    /// The total, where that is what was asked for.
    void finish();
    unsigned long long count() const { return count_; }

private:
    Output& out_;
    bool long_;
    bool countOnly_;
    char terminator_;
    unsigned long long count_ = 0;
};

/// "-rw-r--r--" from a record's attributes.
std::string attributeText(unsigned attributes);

}  // namespace fscan
