#include "fscan/search/search_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <string_view>
#include <utility>

#include "fscan/options/hints.h"
#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/process/interruption.h"
#include "fscan/query/query_builder.h"
#include "fscan/query/search_roots.h"
#include "fscan/search/provider_session.h"
#include "fscan/sort/sorted_matches.h"
#include "fscan/text/text.h"
#include "fscanner/engine/cache.h"

namespace fscan {

namespace {

/// The sorter for the matches; null where they are passed on as they come. Commands run after
/// the search, so that one which searches itself does not find the cache in use.
std::unique_ptr<SortedMatches> makeSorter(const Options& options) {
    if ((options.sortKeys.empty() && !options.runsCommands()) || options.countOnly) return nullptr;
    SortOrder order;
    if (!options.sortKeys.empty()) order.keys = options.sortKeys;
    order.reversed = options.reverse;
    return std::make_unique<SortedMatches>(order,
                                           options.spill ? SortPlace::file : SortPlace::memory);
}

std::unique_ptr<fscanner::FsRecordFilter> makeFilter(const Search& search) {
    const std::wstring& rest = search.conditions.rest;
    if (rest.empty()) return nullptr;
    return fscanner::FsRecordFilter::create(rest.c_str(), !search.options.ignoreCase);
}

MatchSink& firstSink(SortedMatches* sorter, MatchSink& last) {
    if (sorter == nullptr) return last;
    return *sorter;
}

MatchSink& lastSink(FactsNeeded needed, DetailedMatches& detailed, MatchConsumer& consumer) {
    if (needed == FactsNeeded::detailed) return detailed;
    return consumer;
}

FactsNeeded factsNeeded(const Options& options, FactsNeeded toShow) {
    const bool byNumber = std::any_of(options.sortKeys.begin(), options.sortKeys.end(), isNumber);
    if (byNumber && !options.countOnly) return FactsNeeded::examined;
    return toShow == FactsNeeded::detailed ? FactsNeeded::known : toShow;
}

}  // namespace

SearchRun::SearchRun(const Search& search, MatchConsumer& consumer, FileExaminer& examiner,
                     FactsNeeded needed, Output& out)
    : search_(search),
      consumer_(consumer),
      out_(out),
      examiner_(examiner),
      detailed_(search.roots, examiner_, consumer),
      last_(lastSink(needed, detailed_, consumer)),
      sorter_(makeSorter(search.options)),
      rest_(makeFilter(search)),
      matches_(search.conditions.excludes, search.conditions.names, search.conditions.files,
               {search.options.ignoreFiles, search.options.noHidden}, examiner_,
               firstSink(sorter_.get(), last_), factsNeeded(search.options, needed),
               search.options.runsCommands() ||
                   search.options.kinds != fscanner::FS_KINDS_BUT_DIRECTORIES),
      line_(search.options.quiet),
      watcher_(
          {search.options, search.roots, search.conditions.excludes, matches_, rest_.get(), line_}),
      writer_(matches_, line_) {}

SearchRun::~SearchRun() = default;

ExitStatus SearchRun::run(bool incomplete, Summary& summary) {
    std::optional<Interruption> interruption(std::in_place);
    Outcome outcome;
    const auto start = std::chrono::steady_clock::now();
    ExitStatus status = searchRoots();
    outcome.time = std::chrono::steady_clock::now() - start;
    line_.erase();
    if (!Interruption::pending() && out_.error() == 0) {
        // From here on a signal ends the process at once, unless a summary must be written.
        if (!summary.wanted()) interruption.reset();
        status = std::max(status, deliver(status));
        out_.flush();
    }
    status = overall(status, incomplete);
    conclude(status, outcome);
    summary.write(watcher_.search(), outcome);
    if (interruption) interruption->endIfPending(readerGone());
    return summary.writable() ? status : std::max(status, ExitStatus::failure);
}

/// Searches one root after the other, so that each file is reported once, below its PATH.
ExitStatus SearchRun::searchRoots() {
    ExitStatus status = ExitStatus::found;
    for (const SearchRoot& root : search_.roots.roots) {
        status = std::max(status, searchRoot(root));
        const bool unread = out_.error() != 0;
        if (status == ExitStatus::failure || matches_.stopped() || unread ||
            Interruption::pending())
            break;
    }
    return status;
}

/// The provider writes to `writer_`, so that matches are printed as they are found and need not
/// be kept.
ExitStatus SearchRun::searchRoot(const SearchRoot& root) {
    matches_.setRoot(root);
    if (search_.conditions.excludes.cover(root.real) && !search_.options.quiet)
        complain(fmt::format("note: {}: left out by --exclude", root.given));
    setSearchedPath(search_.options, root, search_.query);
    search_.query.setFacts(matches_.needRecords());
    const int code = askWithFallback(root);
    if (matches_.stopped() || Interruption::pending()) return ExitStatus::found;
    // The other half of the PATH lies on a drive.
    if (root.half && code == fscanner::FS_CACHE_NO_DRIVE) return ExitStatus::found;
    const ExitStatus status = search_.session.report(code, root.given);
    if (status == ExitStatus::incomplete) watcher_.timedOut(root.given);
    return status;
}

/// Searches again without the cache, where the cache failed before anything was found.
int SearchRun::askWithFallback(const SearchRoot& root) {
    const bool local = search_.drives.of(root.real)->getType() == fscanner::DRIVE_LOCAL;
    const unsigned long long before = matches_.added();
    for (;;) {
        watcher_.expectCaching(search_.session.cached && local);
        const int code = ask();
        const bool nothingYet = matches_.added() == before && !Interruption::pending();
        line_.erase();
        if (!nothingYet || !search_.session.goOnWithoutCache(code, search_.options.quiet))
            return code;
        watcher_.forgetCache();
    }
}

/// While we read the cache, no other process can build a tree in it. So a slow reader of the
/// output must not block us: it gets the rest when the search is over.
int SearchRun::ask() {
    std::optional<TimeLimit> limit(std::in_place, search_.options.timeoutMilliseconds);
    if (!search_.session.cached) return search_.session.run(writer_, search_.query);
    int code = 0;
    {
        const Output::NonBlocking results(out_);
        const Output::NonBlocking messages(errors());
        code = search_.session.run(writer_, search_.query);
    }
    limit.reset();
    if (Interruption::pending()) return code;
    errors().catchUp();
    out_.catchUp();
    return code;
}

/// Passes on the sorted matches. After a signal the output is not finished, so that it does not
/// look complete.
ExitStatus SearchRun::deliver(ExitStatus status) {
    const bool delivered = !sorter_ || sorter_->deliver(last_);
    if (Interruption::pending()) return ExitStatus::found;
    consumer_.missed(watcher_.search().skipped.size());
    // The totals of a failed search would be wrong.
    if (!consumer_.tellsTotals() || status < ExitStatus::failure) consumer_.finish();
    if (!delivered) {
        complain("the temporary file of matches cannot be written or read; is the disk full?");
        return ExitStatus::failure;
    }
    return consumer_.status();
}

bool SearchRun::readerGone() const {
    return out_.error() == EPIPE;
}

/// The exit status of a search whose parts came to `status`.
ExitStatus SearchRun::overall(ExitStatus status, bool incomplete) const {
    if (out_.error() != 0 && !readerGone()) return ExitStatus::failure;
    if (incomplete || watcher_.rootSkipped() || watcher_.search().systemFailed() ||
        violatesStrict())
        status = std::max(status, ExitStatus::incomplete);
    return status == ExitStatus::found && consumer_.count() == 0 ? ExitStatus::nothingFound
                                                                 : status;
}

/// Whether --strict makes the answer incomplete. A file that is gone counts only where a
/// command was to be run for it.
bool SearchRun::violatesStrict() const {
    if (!search_.options.strict) return false;
    using enum FileExaminer::Found;
    const bool notRun = search_.options.runsCommands() && examiner_.leftOut(gone) != 0;
    return notRun || examiner_.leftOut(changed) != 0 || examiner_.leftOut(unknown) != 0 ||
           !watcher_.search().skipped.empty() || watcher_.search().undecided != 0;
}

void SearchRun::conclude(ExitStatus status, Outcome& outcome) const {
    const int noted = Interruption::signal();
    const int lost = readerGone() ? Interruption::ofLostReader() : 0;
    const int signal = noted != 0 ? noted : lost;
    outcome.matches = consumer_.count();
    outcome.gone = examiner_.leftOut(FileExaminer::Found::gone);
    outcome.changed = examiner_.leftOut(FileExaminer::Found::changed);
    outcome.unexamined = examiner_.leftOut(FileExaminer::Found::unknown);
    outcome.cut = matches_.stopped() || consumer_.full() || readerGone();
    outcome.interrupted = noted != 0;
    outcome.status = status;
    outcome.signal = signal;
    if (signal == 0 || outcome.interrupted) tell(search_.options, watcher_.search(), outcome);
    noteUnmetExcludes(outcome);
    hint(outcome);
}

/// Says why nothing was found, where that can be seen.
void SearchRun::hint(const Outcome& outcome) const {
    const bool nothing =
        outcome.signal == 0 && outcome.status == ExitStatus::nothingFound && !search_.options.quiet;
    if (!nothing) return;
    if (const auto text = hintForNothing(search_.options)) complain("note: " + *text);
}

/// Names the exclusions that left nothing out. That is known only after a complete search by a
/// provider that reports its exclusions.
void SearchRun::noteUnmetExcludes(const Outcome& outcome) const {
    const Excludes& excludes = search_.conditions.excludes;
    const bool all = outcome.foundAll() && !outcome.cut && watcher_.search().skipped.empty() &&
                     search_.options.recurse;
    if (!all || search_.options.quiet || !search_.session.reportsExclusions()) return;
    // A mount that was not entered may have been left out by an exclusion.
    for (const fscanner::DriveInfo& drive : search_.drives.all())
        for (const SearchRoot& root : search_.roots.roots)
            if (liesIn(mountDirectory(drive), root.real))
                excludes.cover(std::wstring(mountDirectory(drive)));
    for (const std::string& text : excludes.unmet())
        complain(fmt::format("note: --exclude {} left nothing out", text));
}

}  // namespace fscan
