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

/// The same, but no signal leaves a cache open.
int searchSafely(const Search& search, const Output& out, Matches& matches, Watcher& watcher,
                 ProgressLine& line) {
    MatchWriter writer(matches, line);
    if (!search.asking.cached) return searchRoots(search, matches, watcher, writer);
    const Interruption interruption;
    const int status = searchRoots(search, matches, watcher, writer);
    line.erase();
    interruption.endIfPending(out.error() == EPIPE);
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

/// Hands on what was sorted. The exit status of that.
int deliver(SortedMatches* sorter, MatchConsumer& consumer) {
    const bool delivered = sorter == nullptr || sorter->deliver(consumer);
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

int runAndReport(const Search& search, const std::wstring& rest, const NameFilter& names,
                 const FileFilters& filters, const Excludes& excludes, bool incomplete,
                 Output& out) {
    const Options& options = search.options;
    bool withFacts = false;
    const std::unique_ptr<MatchConsumer> consumer = makeConsumer(options, out, withFacts);
    if (!consumer) return STATUS_USAGE;
    const std::unique_ptr<SortedMatches> sorter = makeSorter(options);
    MatchSink& sink = sorter ? static_cast<MatchSink&>(*sorter) : *consumer;
    withFacts = withFacts || options.sortKey == SortKey::size;
    Matches matches(excludes, names, filters, sink, withFacts);
    std::unique_ptr<fscanner::FsRecordFilter> filter;
    if (!rest.empty()) filter = fscanner::FsRecordFilter::create(rest.c_str(), !options.ignoreCase);
    ProgressLine line(options.quiet);
    Watcher watcher({options, search.roots, excludes, matches, filter.get(), line});

    const auto start = std::chrono::steady_clock::now();
    int status = searchSafely(search, out, matches, watcher, line);
    const auto time = std::chrono::steady_clock::now() - start;
    status = std::max(status, deliver(sorter.get(), *consumer));
    out.flush();
    const bool strictlyWrong = options.strict && !watcher.search().skipped.empty();
    if (incomplete || watcher.rootSkipped() || strictlyWrong)
        status = std::max<int>(status, STATUS_INCOMPLETE);
    if (status == STATUS_FOUND && consumer->count() == 0) status = STATUS_NOTHING_FOUND;
    if (!report(options, watcher.search(), {consumer->count(), status, time}))
        status = std::max<int>(status, STATUS_FAILURE);
    return status;
}

}  // namespace

int runSearch(const Options& options, Output& out) {
    const std::optional<std::wstring> where = combineCriteria(options.criteria);
    SearchRoots roots = SearchRoots::resolve(options);
    if (!where || roots.wrong) return STATUS_USAGE;
    const std::optional<DriveList> drives = DriveList::read();
    if (!drives) return STATUS_FAILURE;
    const std::optional<Asking> asking = Asking::prepare(options);
    if (!asking) return STATUS_FAILURE;
    const bool mounted = keepMounted(roots, *drives);

    const Excludes excludes(options);
    const NameFilter names(options);
    const FileFilters filters(options);
    const std::wstring rest = bothCriteria(filters.criteria(), *where);
    fscanner::FsQuery query;
    fillQuery({options, roots, excludes, *drives, bothCriteria(names.criteria(), rest)}, query);
    const Search search{options, roots, *drives, *asking, query};
    if (options.explain) return explainRoots(search, out);
    return runAndReport(search, rest, names, filters, excludes, !mounted || roots.incomplete, out);
}

}  // namespace fscan
