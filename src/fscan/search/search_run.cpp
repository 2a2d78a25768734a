#include "fscan/search/search_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <utility>

#include "fscan/options/options.h"
#include "fscan/output/messages.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/process/interruption.h"
#include "fscan/query/drives.h"
#include "fscan/query/query_builder.h"
#include "fscan/query/search_roots.h"
#include "fscan/search/asking.h"
#include "fscan/sort/sorted_matches.h"
#include "fscan/text/paths.h"
#include "fscanner/engine/cache.h"

namespace fscan {

namespace {

/// Where matches are sorted, or null. Commands run when the search is over: one that
/// searches itself must not find the cache in use.
std::unique_ptr<SortedMatches> makeSorter(const Options& options) {
    if ((!options.sortKey && !options.runsCommands()) || options.countOnly) return nullptr;
    const SortOrder order{options.sortKey.value_or(SortKey::pathname), options.reverse};
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
    const bool bySize = options.sortKey == SortKey::size && !options.countOnly;
    if (bySize) return FactsNeeded::examined;
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
               examiner_, firstSink(sorter_.get(), last_), factsNeeded(search.options, needed),
               search.options.runsCommands()),
      line_(search.options.quiet),
      watcher_(
          {search.options, search.roots, search.conditions.excludes, matches_, rest_.get(), line_}),
      writer_(matches_, line_) {}

SearchRun::~SearchRun() = default;

int SearchRun::run(bool incomplete, Summary& summary) {
    std::optional<Interruption> interruption(std::in_place);
    Outcome outcome;
    const auto start = std::chrono::steady_clock::now();
    int status = searchRoots();
    outcome.time = std::chrono::steady_clock::now() - start;
    line_.erase();
    if (!Interruption::pending() && out_.error() == 0) {
        // Now a signal may end the process at once, unless a summary is to be written.
        if (!summary.wanted()) interruption.reset();
        status = std::max(status, deliver(status));
        out_.flush();
    }
    status = overall(status, incomplete);
    conclude(status, outcome);
    summary.write(watcher_.search(), outcome);
    if (interruption) interruption->endIfPending(readerGone());
    return summary.writable() ? status : std::max<int>(status, STATUS_FAILURE);
}

/// One root after the other, so that each file is reported once, below the PATH that it
/// belongs to.
int SearchRun::searchRoots() {
    int status = STATUS_FOUND;
    for (const SearchRoot& root : search_.roots.roots) {
        status = std::max(status, searchRoot(root));
        const bool unread = out_.error() != 0;
        if (status == STATUS_FAILURE || matches_.stopped() || unread || Interruption::pending())
            break;
    }
    return status;
}

/// The provider writes straight to us, so that matches are printed as they are found and
/// nothing is kept that need not be.
int SearchRun::searchRoot(const SearchRoot& root) {
    matches_.setRoot(root);
    if (search_.conditions.excludes.cover(root.real) && !search_.options.quiet)
        complain(fmt::format("note: {}: left out by --exclude", root.given));
    setSearchedPath(search_.options, root, search_.query);
    const int code = askAnyway(root);
    if (matches_.stopped() || Interruption::pending()) return STATUS_FOUND;
    // The other half is on a drive.
    if (root.half && code == fscanner::FS_CACHE_NO_DRIVE) return STATUS_FOUND;
    const int status = search_.asking.report(code, root.given);
    if (status == STATUS_INCOMPLETE) watcher_.timedOut(root.given);
    return status;
}

/// Asks once more, without the cache, where that failed before anything was found.
int SearchRun::askAnyway(const SearchRoot& root) {
    const bool local = search_.drives.of(root.real)->getType() == fscanner::DRIVE_LOCAL;
    const unsigned long long before = matches_.added();
    for (;;) {
        watcher_.expectCaching(search_.asking.cached && local);
        const int code = ask();
        const bool nothingYet = matches_.added() == before && !Interruption::pending();
        line_.erase();
        if (!nothingYet || !search_.asking.leaveCache(code, search_.options.quiet)) return code;
        watcher_.forgetCache();
    }
}

/// While a cache is read nobody can build a tree in it: a slow reader of ours gets the rest
/// when that is over.
int SearchRun::ask() {
    std::optional<TimeLimit> limit(std::in_place, search_.options.timeoutMilliseconds);
    if (!search_.asking.cached) return search_.asking.run(writer_, search_.query);
    int code = 0;
    {
        const Output::Impatience results(out_);
        const Output::Impatience messages(errors());
        code = search_.asking.run(writer_, search_.query);
    }
    limit.reset();
    if (Interruption::pending()) return code;
    errors().catchUp();
    out_.catchUp();
    return code;
}

/// Hands on what was sorted; returns the exit status of that. What a signal cuts short is
/// not finished: nobody is to take it for whole.
int SearchRun::deliver(int status) {
    const bool delivered = !sorter_ || sorter_->deliver(last_);
    if (Interruption::pending()) return STATUS_FOUND;
    // A count of a search that failed is no count.
    if (!search_.options.countOnly || status < STATUS_FAILURE) consumer_.finish();
    if (!delivered) {
        complain("the temporary file of matches cannot be written or read; is the disk full?");
        return STATUS_FAILURE;
    }
    return consumer_.failed() ? STATUS_COMMAND_FAILED : STATUS_FOUND;
}

bool SearchRun::readerGone() const {
    return out_.error() == EPIPE;
}

/// The exit status of a search whose parts came to `status`.
int SearchRun::overall(int status, bool incomplete) const {
    if (out_.error() != 0 && !readerGone()) return STATUS_FAILURE;
    if (incomplete || watcher_.rootSkipped() || watcher_.search().systemFailed() || strictlyWrong())
        status = std::max<int>(status, STATUS_INCOMPLETE);
    return status == STATUS_FOUND && consumer_.count() == 0 ? STATUS_NOTHING_FOUND : status;
}

/// A file that is gone is missing nowhere but where a command was to be run for it.
bool SearchRun::strictlyWrong() const {
    if (!search_.options.strict) return false;
    using enum FileExaminer::Found;
    const bool notRun = search_.options.runsCommands() && examiner_.leftOut(gone) != 0;
    return notRun || examiner_.leftOut(changed) != 0 || examiner_.leftOut(unknown) != 0 ||
           !watcher_.search().skipped.empty() || watcher_.search().undecided != 0;
}

void SearchRun::conclude(int status, Outcome& outcome) const {
    const int noted = Interruption::signal();
    const int lost = readerGone() ? Interruption::ofLostReader() : 0;
    const int signal = noted != 0 ? noted : lost;
    outcome.matches = consumer_.count();
    outcome.gone = examiner_.leftOut(FileExaminer::Found::gone);
    outcome.changed = examiner_.leftOut(FileExaminer::Found::changed);
    outcome.unexamined = examiner_.leftOut(FileExaminer::Found::unknown);
    outcome.cut = matches_.stopped() || consumer_.full() || readerGone();
    outcome.interrupted = noted != 0;
    outcome.status = signal == 0 ? status : 128 + signal;
    if (signal == 0 || outcome.interrupted) tell(search_.options, watcher_.search(), outcome);
    noteUnmetExcludes(outcome);
}

/// Known only where all was looked at, by a provider that tells what it left out.
void SearchRun::noteUnmetExcludes(const Outcome& outcome) const {
    const Excludes& excludes = search_.conditions.excludes;
    const bool all = outcome.status <= STATUS_NOTHING_FOUND && !outcome.cut &&
                     watcher_.search().skipped.empty() && search_.options.recurse;
    if (!all || search_.options.quiet || !search_.asking.tellsExclusions()) return;
    // What is mounted may not have been searched anyway: it was not walked into.
    for (const fscanner::DriveInfo& drive : search_.drives.all())
        for (const SearchRoot& root : search_.roots.roots)
            if (liesIn(mountDirectory(drive), root.real))
                excludes.cover(std::wstring(mountDirectory(drive)));
    for (const std::string& text : excludes.unmet())
        complain(fmt::format("note: --exclude {} left nothing out", text));
}

}  // namespace fscan
