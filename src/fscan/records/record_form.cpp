#include "fscan/records/record_form.h"

#include <fmt/format.h>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/records/path_text.h"
#include "fscan/text/values.h"

namespace fscan {

namespace {

class PathForm : public RecordForm {
public:
    PathForm(const Options& options, bool terminal)
        : path_(options, terminal), terminator_(options.nullTerminated ? '\0' : '\n') {}

    void write(const Match& match, Output& out) override {
        path_.write(match, out);
        out.write({&terminator_, 1});
    }
    FactsNeeded needsFacts() const override { return path_.needsFacts(); }

private:
    PathText path_;
    char terminator_;
};

class LongForm : public PathForm {
public:
    LongForm(const Options& options, bool terminal)
        : PathForm(options, terminal), exact_(options.exactSizes) {}

    void write(const Match& match, Output& out) override {
        const FileFacts& file = match.facts;
        const std::string size = exact_ ? std::to_string(file.size) : sizeText(file.size);
        out.write(fmt::format("{} {:>{}} {:16} ", attributeText(file.attributes), size,
                              exact_ ? 12 : 5, file.known ? momentText(file.modified) : "-"));
        PathForm::write(match, out);
    }
    FactsNeeded needsFacts() const override { return FactsNeeded::examined; }

private:
    bool exact_;
};

}  // namespace

std::unique_ptr<RecordForm> makeRecordForm(const Options& options, bool terminal) {
    switch (options.form) {
        case OutputForm::json:
        case OutputForm::jsonArray:
            return makeJsonForm(options.form == OutputForm::jsonArray, options.withTypes);
        case OutputForm::csv:
            return makeCsvForm(options.withTypes);
        case OutputForm::longer:
            return std::make_unique<LongForm>(options, terminal);
        default:
            return std::make_unique<PathForm>(options, terminal);
    }
}

}  // namespace fscan
