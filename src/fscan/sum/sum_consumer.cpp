#include "fscan/sum/sum_consumer.h"

#include <fmt/format.h>

#include <limits>
#include <utility>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/process/interruption.h"
#include "fscan/sum/sum_form.h"

namespace fscan {

SumConsumer::SumConsumer(const Options& options, std::vector<std::string> roots, bool cached,
                         Output& out)
    : MatchConsumer(std::nullopt),
      options_(options),
      out_(out),
      count_(options, cached),
      grouping_(*options.sumBy) {
    if (*options.sumBy == SumBy::directory)
        directories_.emplace(std::move(roots), std::max(options.sumDepth, 1U));
}

bool SumConsumer::lacks(const FileDetails& file) const {
    return count_.lacks(file) || grouping_.lacks(file);
}

bool SumConsumer::consume(const Match& match) {
    const FileDetails& file = *match.details;
    const unsigned long long bytes = count_.bytesOf(file);
    total_.add(bytes);
    if (directories_)
        directories_->add(match, bytes);
    else
        groups_.of(grouping_.groupOf(match, file)).add(bytes);
    return !Interruption::pending();
}

void SumConsumer::finish() {
    const Sums& sums = directories_ ? directories_->sums() : groups_;
    const std::size_t most = options_.top.value_or(std::numeric_limits<std::size_t>::max());
    const SumTable table{*options_.sumBy, sums.largest(most), sums.size(),
                         total_,          count_.measure(),   count_.usedCache()};
    printSums(table, options_, out_);
    out_.flush();
    count_.tell(options_.quiet);
}

}  // namespace fscan
