#include "search.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>

#include "asking.h"
#include "command_runner.h"
#include "criteria.h"
#include "drives.h"
#include "excludes.h"
#include "exit_status.h"
#include "explain.h"
#include "file_filters.h"
#include "fscanner/fs/fs_inspect.h"
#include "interruption.h"
#include "matches.h"
#include "messages.h"
#include "name_filter.h"
#include "options.h"
#include "output.h"
#include "progress_line.h"
#include "query_builder.h"
#include "record_printer.h"
#include "search_roots.h"
#include "sorted_matches.h"
#include "watcher.h"

namespace fscan {

namespace {

std::wstring bothCriteria(const std::wstring& a, const std::wstring& b) {
    if (a.empty() || b.empty()) return a + b;
    return a + L" && " + b;
}

/// Drops the roots that no drive covers. False where there was one.
bool keepMounted(SearchRoots& roots, const DriveList& drives) {
    const auto unmounted = [&drives](const SearchRoot& root) {
        if (drives.of(root.real) != nullptr) return false;
        complain(fmt::format("{}: lies on no mounted file system", root.given));
        return true;
    };
    return std::erase_if(roots.roots, unmounted) == 0;
}

/// What the searches of all roots go by.
struct Search {
    const Options& options;
    const SearchRoots& roots;
    const DriveList& drives;
    const Asking& asking;
    fscanner::FsQuery& query;  ///< all of it but the path
};

/// Searches the roots one after the other, so that each file is reported once,
/// below the PATH that it belongs to.
///
/// The provider writes straight to us, so that matches are printed as they are
/// found and nothing is kept that need not be.
int searchRoots(const Search& search, Matches& matches, Watcher& watcher, MatchWriter& writer) {
    int status = STATUS_FOUND;
    for (const SearchRoot& root : search.roots.roots) {
        matches.setRoot(root);
        setSearchedPath(search.options, root, search.query);
        const bool local = search.drives.of(root.real)->getType() == fscanner::DRIVE_LOCAL;
        watcher.expectCaching(search.asking.cached && local);
        const int code = search.asking.run(writer, search.query);
        if (matches.stopped() || Interruption::pending()) break;
        const int found = search.asking.report(code, root.given);
        if (found == STATUS_INCOMPLETE) watcher.timedOut(root.given);
        status = std::max(status, found);
        if (status == STATUS_FAILURE) break;
    }
    return status;
}

int explainRoots(const Search& search, Output& out) {
    int status = STATUS_FOUND;
    for (const SearchRoot& root : search.roots.roots) {
        if (&root != &search.roots.roots.front()) out.write("\n");
        setSearchedPath(search.options, root, search.query);
        const bool last = &root == &search.roots.roots.back();
        status = std::max(status, explainQuery(search.asking, search.query, last, out));
    }
    return status;
}

bool runsCommands(const Options& options) {
    return options.command || options.batchCommand;
}

/// Where matches are sorted, or null. Commands run when the search is over: one that
/// searches itself must not find the cache in use.
std::unique_ptr<SortedMatches> makeSorter(const Options& options) {
    if ((!options.sortKey && !runsCommands(options)) || options.countOnly) return nullptr;
    removeFilesOnSignals();
    const SortOrder order{options.sortKey.value_or(SortKey::pathname), options.reverse};
    return std::make_unique<SortedMatches>(order, options.spill ? 0 : SortedMatches::memoryBound);
}

/// Hands on what was sorted. The exit status of that. What a signal cuts short is not
/// finished: nobody is to take it for whole.
int deliver(SortedMatches* sorter, MatchConsumer& consumer) {
    const bool delivered = sorter == nullptr || sorter->deliver(consumer);
    if (Interruption::pending()) return STATUS_FOUND;
    consumer.finish();
    if (!delivered) {
        complain("the temporary file of matches cannot be written or read; is the disk full?");
        return STATUS_FAILURE;
    }
    return consumer.failed() ? STATUS_COMMAND_FAILED : STATUS_FOUND;
}

/// What takes the matches in the end; null, with a message, where a template is wrong.
/// `needsFacts` is set to whether they have to come with their facts.
std::unique_ptr<MatchConsumer> makeConsumer(const Options& options, Output& out, bool& needsFacts) {
    if (runsCommands(options)) return std::make_unique<CommandRunner>(options, out);
    std::string error;
    std::unique_ptr<RecordForm> form =
        options.formatTemplate
            ? makeTemplateForm(*options.formatTemplate, options.nullTerminated ? '\0' : '\n', error)
            : makeRecordForm(options, out.isTerminal());
    if (!form) {
        complain("--format: " + error);
        return nullptr;
    }
    needsFacts = !options.countOnly && form->needsFacts();
    return std::make_unique<RecordPrinter>(options, std::move(form), out);
}

/// The signal that is about to end the process, or 0.
int endingSignal(bool readerGone) {
    if (Interruption::pending()) return Interruption::signal();
    return readerGone ? Interruption::ofLostReader() : 0;
}
/// What the matches have to satisfy.
struct Conditions {
    Conditions(const Options& options, const std::wstring& where)
        : excludes(options),
          names(options),
          files(options),
          rest(bothCriteria(files.criteria(), where)) {}

    Excludes excludes;
    NameFilter names;
    FileFilters files;
    std::wstring rest;  ///< all criteria but for the names
};

/// The exit status of a search whose parts came to `status`.
int overall(int status, bool incomplete, bool found, bool outputFailed) {
    if (outputFailed) return STATUS_FAILURE;
    if (incomplete) status = std::max<int>(status, STATUS_INCOMPLETE);
    return status == STATUS_FOUND && !found ? STATUS_NOTHING_FOUND : status;
}

int runAndReport(const Search& search, const Conditions& conditions, bool incomplete,
                 Summary& summary, Output& out) {
    const Options& options = search.options;
    bool withFacts = false;
    const std::unique_ptr<MatchConsumer> consumer = makeConsumer(options, out, withFacts);
    if (!consumer) return STATUS_USAGE;
    const std::unique_ptr<SortedMatches> sorter = makeSorter(options);
    MatchSink& sink = sorter ? static_cast<MatchSink&>(*sorter) : *consumer;
    withFacts = withFacts || options.sortKey == SortKey::size;
    Matches matches(conditions.excludes, conditions.names, conditions.files, sink, withFacts);
    std::unique_ptr<fscanner::FsRecordFilter> filter;
    if (!conditions.rest.empty())
        filter = fscanner::FsRecordFilter::create(conditions.rest.c_str(), !options.ignoreCase);
    ProgressLine line(options.quiet);
    Watcher watcher({options, search.roots, conditions.excludes, matches, filter.get(), line});
    MatchWriter writer(matches, line);

    std::optional<Interruption> interruption(std::in_place);
    const auto start = std::chrono::steady_clock::now();
    int status = searchRoots(search, matches, watcher, writer);
    Outcome outcome;
    outcome.time = std::chrono::steady_clock::now() - start;
    line.erase();
    if (!Interruption::pending() && out.error() == 0) {
        // Now a signal may end the process at once, unless a summary is to be written.
        if (!summary.wanted()) interruption.reset();
        status = std::max(status, deliver(sorter.get(), *consumer));
        out.flush();
    }
    const bool readerGone = out.error() == EPIPE;
    const int signal = endingSignal(readerGone);
    outcome.matches = consumer->count();
    outcome.cut = matches.stopped() || readerGone;
    outcome.interrupted = Interruption::pending();
    const bool strictlyWrong = options.strict && !watcher.search().skipped.empty();
    incomplete = incomplete || watcher.rootSkipped() || strictlyWrong;
    status = overall(status, incomplete, consumer->count() > 0, out.error() != 0 && !readerGone);
    outcome.status = signal == 0 ? status : 128 + signal;
    if (signal == 0 || outcome.interrupted) tell(options, watcher.search(), outcome);
    summary.write(watcher.search(), outcome);
    if (!summary.writable()) status = std::max<int>(status, STATUS_FAILURE);
    if (interruption) interruption->endIfPending(readerGone);
    return status;
}

int searchAsTold(const Options& options, Summary& summary, Output& out) {
    const std::optional<std::wstring> where = combineCriteria(options.criteria);
    SearchRoots roots = SearchRoots::resolve(options);
    if (!where || roots.wrong) return STATUS_USAGE;
    const std::optional<DriveList> drives = DriveList::read();
    if (!drives) return STATUS_FAILURE;
    const std::optional<Asking> asking = Asking::prepare(options);
    if (!asking) return STATUS_FAILURE;
    const bool mounted = keepMounted(roots, *drives);

    const Conditions conditions(options, *where);
    fscanner::FsQuery query;
    fillQuery({options, roots, conditions.excludes, *drives,
               bothCriteria(conditions.names.criteria(), conditions.rest)},
              query);
    const Search search{options, roots, *drives, *asking, query};
    if (options.explain) return explainRoots(search, out);
    return runAndReport(search, conditions, !mounted || roots.incomplete, summary, out);
}

}  // namespace

int runSearch(const Options& options, Output& out) {
    Summary summary(options);
    if (!summary.writable()) return STATUS_USAGE;
    const int status = searchAsTold(options, summary, out);
    if (summary.written() || options.explain) return status;
    Outcome nothingSearched;
    nothingSearched.status = status;
    summary.write({}, nothingSearched);
    return status;
}

}  // namespace fscan
