#pragma once

#include <memory>

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
    /// What matches have to come with.
    virtual FactsNeeded needsFacts() const { return FactsNeeded::none; }
};

/// The form that the options ask for.
std::unique_ptr<RecordForm> makeRecordForm(const Options& options, bool terminal);

// Forms for programs to read.
std::unique_ptr<RecordForm> makeJsonForm(bool array, bool withTypes);
std::unique_ptr<RecordForm> makeCsvForm(bool withTypes);
/// Null, with the reason in `error`, where the template is wrong.
std::unique_ptr<RecordForm> makeTemplateForm(const std::string& text, char terminator,
                                             std::string& error);

}  // namespace fscan
