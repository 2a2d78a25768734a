#include "fscan/records/record_printer.h"

#include <fmt/format.h>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/process/interruption.h"

namespace fscan {

RecordPrinter::RecordPrinter(const Options& options, std::unique_ptr<RecordForm> form, Output& out)
    : MatchConsumer(options.limit),
      form_(std::move(form)),
      out_(out),
      countOnly_(options.countOnly) {
    if (!countOnly_) form_->begin(out_);
}

bool RecordPrinter::consume(const Match& match) {
    if (!countOnly_) {
        form_->write(match, out_);
        out_.endRecord();
    }
    return out_.error() == 0 && !Interruption::pending();
}

void RecordPrinter::finish() {
    if (countOnly_) {
        out_.write(fmt::format("{}\n", count()));
    } else {
        form_->end(out_);
    }
}

}  // namespace fscan
