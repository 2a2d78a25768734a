#include "record_printer.h"

#include <fmt/format.h>

#include <limits>

#include "interruption.h"
#include "options.h"
#include "output.h"

namespace fscan {

RecordPrinter::RecordPrinter(const Options& options, std::unique_ptr<RecordForm> form, Output& out)
    : form_(std::move(form)),
      out_(out),
      countOnly_(options.countOnly),
      limit_(options.limit.value_or(std::numeric_limits<unsigned long long>::max())) {
    if (!countOnly_) form_->begin(out_);
}

bool RecordPrinter::take(const Match& match) {
    if (count_ == limit_) return false;
    ++count_;
    if (!countOnly_) {
        form_->write(match, out_);
        out_.endRecord();
    }
    return out_.error() == 0 && count_ < limit_ && !Interruption::pending();
}

void RecordPrinter::finish() {
    if (countOnly_) {
        out_.write(fmt::format("{}\n", count_));
    } else {
        form_->end(out_);
    }
}

}  // namespace fscan
