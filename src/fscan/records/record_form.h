#pragma once

#include <memory>
#include <string>

#include "fscan/match/match.h"

namespace fscan {

class Output;
struct Options;

/// How a match is printed.
class RecordForm {
public:
    virtual ~RecordForm() = default;
    virtual void begin(Output&) {}
    virtual void write(const Match& match, Output& out) = 0;
    virtual void end(Output&) {}
    /// How much must be known of matches.
    virtual FactsNeeded needsFacts() const { return FactsNeeded::none; }
};

/// The form that the options ask for.
std::unique_ptr<RecordForm> makeRecordForm(const Options& options, bool terminal);

/// The form of --format, such as "{size} {path}". Null, with the reason in `error`, for a wrong
/// template.
std::unique_ptr<RecordForm> makeTemplateForm(const std::string& text, char terminator,
                                             std::string& error);

/// Prints the matches in the chosen form, or their number.
class RecordPrinter : public MatchConsumer {
public:
    RecordPrinter(const Options& options, std::unique_ptr<RecordForm> form, Output& out);

    /// Prints the end of the form, or the number.
    void finish() override;
    bool tellsTotals() const override { return countOnly_; }

private:
    /// False once the output has failed.
    bool consume(const Match& match) override;

    std::unique_ptr<RecordForm> form_;
    Output& out_;
    bool countOnly_;
};

}  // namespace fscan
