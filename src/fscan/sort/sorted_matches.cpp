#include "fscan/sort/sorted_matches.h"

#include <algorithm>
#include <optional>
#include <string>

namespace fscan {

namespace {

// A file is sorted by its key alone. This puts the matches of each key into the
// order of their path names, and sees whether the keys are in order.
class TieSorter {
public:
    TieSorter(SortOrder order, std::size_t bound, MatchSink& to)
        : order_(order),
          ties_({SortKey::pathname, order.reversed}, std::max(bound, smallestBound)),
          to_(to) {}

    // False when nothing more is wanted, or when something went wrong.
    bool take(const Match& match) {
        const int order = first_ ? compareKeys(order_.key, key(), match) : 0;
        if (first_ && order != 0) {
            if ((order > 0) != order_.reversed) failed_ = true;
            if (failed_ || !flush()) return false;
        }
        if (!first_) {
            first_ = match;
            text_ = match.path;
        }
        return ties_.take(match) || fail();
    }
    bool flush() {
        first_.reset();
        struct Passing : MatchSink {
            explicit Passing(MatchSink& sink) : to(sink) {}
            bool take(const Match& match) override { return wanted = to.take(match); }
            MatchSink& to;
            bool wanted = true;
        } passing{to_};
        return (ties_.deliver(passing) || fail()) && passing.wanted;
    }
    bool failed() const { return failed_; }

private:
    // Even where everything is to go to files, few ties are not worth one.
    static constexpr std::size_t smallestBound = std::size_t{1} << 24;

    Match key() const {
        Match key = *first_;
        key.path = text_;
        return key;
    }
    bool fail() {
        failed_ = true;
        return false;
    }

    SortOrder order_;
    SortedMatches ties_;
    MatchSink& to_;
    std::optional<Match> first_;  // of the matches with one key
    std::string text_;
    bool failed_ = false;
};

// Merges what comes, in order, with what is sorted in memory.
class Merger : public MatchSink {
public:
    Merger(SortOrder order, const MemorySorter& memory, MatchSink& to)
        : order_(order), memory_(memory), to_(to) {}

    bool take(const Match& match) override {
        while (place_ < memory_.size() && comesBefore(order_, memory_.at(place_), match)) {
            if (!to_.take(memory_.at(place_++))) return false;
        }
        return to_.take(match);
    }
    void finish() {
        while (place_ < memory_.size() && to_.take(memory_.at(place_))) ++place_;
    }

private:
    SortOrder order_;
    const MemorySorter& memory_;
    MatchSink& to_;
    std::size_t place_ = 0;
};

}  // namespace

SortedMatches::SortedMatches(SortOrder order, std::size_t bound)
    : order_(order), bound_(bound), memory_(order) {}

bool SortedMatches::take(const Match& match) {
    if (!file_ && memory_.bytes() + match.path.size() > bound_ && !spill()) return false;
    if (file_ && SpillFile::holds(match)) {
        failed_ = failed_ || !file_->add(match);
    } else {
        failed_ = failed_ || !memory_.add(match);
    }
    return !failed_;
}

// Moves what memory holds to a file: in order, which leaves the less to sort there.
bool SortedMatches::spill() {
    file_ = std::make_unique<SpillFile>();
    MemorySorter kept(order_);
    memory_.sort();
    for (std::size_t i = 0; i < memory_.size() && !failed_; ++i) {
        const Match match = memory_.at(i);
        failed_ = SpillFile::holds(match) ? !file_->add(match) : !kept.add(match);
    }
    memory_ = std::move(kept);
    return !failed_;
}

bool SortedMatches::deliver(MatchSink& to) {
    memory_.sort();
    if (file_) {
        if (!failed_ && !deliverSpilled(to)) failed_ = true;
    } else {
        for (std::size_t i = 0; i < memory_.size() && to.take(memory_.at(i)); ++i) {
        }
    }
    memory_.clear();
    file_.reset();
    return !failed_;
}

bool SortedMatches::deliverSpilled(MatchSink& to) {
    Merger merger(order_, memory_, to);
    TieSorter ties(order_, bound_, merger);
    file_->sort(order_);
    bool wanted = true;
    for (Match match; wanted && file_->next(match);) wanted = ties.take(match);
    if (wanted && !ties.failed()) wanted = ties.flush();
    if (wanted) merger.finish();
    return !ties.failed() && (!wanted || file_->complete());
}

}  // namespace fscan
