#include "fscan/search/search.h"

#include <fmt/format.h>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/process/interruption.h"
#include "fscan/process/worker_threads.h"
#include "fscan/query/query_builder.h"
#include "fscan/query/search_roots.h"
#include "fscan/records/record_form.h"
#include "fscan/report/report_consumer.h"
#include "fscan/search/command_runner.h"
#include "fscan/search/explain.h"
#include "fscan/search/provider_session.h"
#include "fscan/search/search_run.h"
#include "fscan/sum/sum_consumer.h"

namespace fscan {

namespace {

/// Removes the roots that lie on no drive. False where there was one.
bool keepMounted(SearchRoots& roots, const DriveList& drives) {
    const auto unmounted = [&drives](const SearchRoot& root) {
        if (drives.of(root.real) != nullptr) return false;
        complain(fmt::format("{}: lies on no mounted file system", root.given));
        return true;
    };
    return std::erase_if(roots.roots, unmounted) == 0;
}

ExitStatus explainRoots(const Search& search, Output& out) {
    ExitStatus status = ExitStatus::found;
    Explanation explanation(search.options, search.session, out);
    for (const SearchRoot& root : search.roots.roots) {
        if (&root != &search.roots.roots.front()) out.write("\n");
        setSearchedPath(search.options, root, search.query);
        const bool last = &root == &search.roots.roots.back();
        status = std::max(status, explanation.add(search.query, last));
    }
    return status;
}

std::vector<std::string> givenPaths(const SearchRoots& roots) {
    std::vector<std::string> paths;
    for (const SearchRoot& root : roots.roots)
        if (paths.empty() || paths.back() != root.given) paths.push_back(root.given);
    return paths;
}

/// The consumer of the matches; null, with a message, for a wrong template or an unsafe
/// --exec-dir. Sets `needed` to how much it must know of matches.
std::unique_ptr<MatchConsumer> makeConsumer(const Search& search, FileExaminer& examiner,
                                            Output& out, FactsNeeded& needed) {
    const Options& options = search.options;
    if (options.runsCommands()) {
        needed = FactsNeeded::examined;
        return CommandRunner::create(search, examiner, out);
    }
    if (options.sumBy || options.report) {
        needed = FactsNeeded::detailed;
        std::vector<std::string> paths = givenPaths(search.roots);
        const bool cached = search.session.cached;
        if (options.report)
            return std::make_unique<ReportConsumer>(options, std::move(paths), cached);
        return std::make_unique<SumConsumer>(options, std::move(paths), cached, out);
    }
    std::string error;
    std::unique_ptr<RecordForm> form =
        options.formatTemplate
            ? makeTemplateForm(*options.formatTemplate, options.nullTerminated ? '\0' : '\n', error)
            : makeRecordForm(options, out.isTerminal());
    if (!form) {
        complain("--format: " + error);
        return nullptr;
    }
    needed = options.countOnly ? FactsNeeded::count : form->needsFacts();
    return std::make_unique<RecordPrinter>(options, std::move(form), out);
}

ExitStatus runAndReport(const Search& search, bool incomplete, Summary& summary, Output& out) {
    FactsNeeded needed = FactsNeeded::none;
    FileExaminer examiner(search.options.findsDirectories(), search.options.followLinks);
    const std::unique_ptr<MatchConsumer> consumer = makeConsumer(search, examiner, out, needed);
    if (!consumer) return ExitStatus::usage;
    return SearchRun(search, *consumer, examiner, needed, out).run(incomplete, summary);
}

/// The user's criteria, and those that must not hold.
std::optional<std::wstring> allCriteria(const Options& options) {
    std::optional<std::wstring> all = combineCriteria(options.criteria);
    for (const Options& negated : options.negated) {
        const std::optional<std::wstring> one = combineCriteria(negated.criteria);
        if (!all || !one) return std::nullopt;
        if (!one->empty()) andAlso(*all, L"!(" + *one + L")");
    }
    return all;
}

/// What is done with a search, of which a part may not be able to be searched.
using UseOfSearch = std::function<ExitStatus(const Search& search, bool incomplete)>;

ExitStatus prepare(const Options& options, const UseOfSearch& use) {
    std::optional<TimeLimit> limit(std::in_place, options.timeoutMilliseconds);
    const std::optional<std::wstring> where = allCriteria(options);
    SearchRoots roots = SearchRoots::resolve(options);
    if (!where || roots.wrong) return ExitStatus::usage;
    const std::optional<DriveList> drives = DriveList::read();
    if (!drives) return ExitStatus::failure;
    std::optional<Excludes> excludes = Excludes::read(options, *drives, roots);
    if (!excludes) return ExitStatus::usage;
    std::optional<ProviderSession> session = ProviderSession::prepare(options);
    if (!session) return ExitStatus::failure;
    const bool mounted = keepMounted(roots, *drives);

    const Conditions conditions(options, std::move(*excludes), *where, session->cached);
    fscanner::FsQuery query;
    fillQuery({options, roots, conditions.excludes, *drives, conditions.all,
               conditions.names.criteriaIgnoresCase()},
              query);
    const Search search{options, roots, *drives, *session, conditions, query};
    limit.reset();  // each PATH has its own time limit
    return use(search, !mounted || roots.incomplete);
}

/// Passes on the paths as matches. False if one of them is gone.
bool passOn(const std::vector<std::string>& paths, DetailedMatches& detailed, FactsNeeded needed,
            MatchConsumer& consumer) {
    bool all = true;
    for (const std::string& path : paths) {
        struct stat info {};
        if (lstat(path.c_str(), &info) != 0) {
            complain(path, errno);
            all = false;
            continue;
        }
        const std::string_view shown = path;
        const std::size_t slash = shown.find_last_of('/');
        const Match match{shown, slash == shown.npos ? 0 : slash + 1,
                          FileDetails::of(info).facts()};
        MatchSink& to = needed == FactsNeeded::detailed ? static_cast<MatchSink&>(detailed)
                                                        : static_cast<MatchSink&>(consumer);
        if (!to.take(match)) break;
    }
    return all;
}

}  // namespace

Conditions::Conditions(const Options& options, Excludes left, const std::wstring& criteria,
                       bool cached)
    : excludes(std::move(left)),
      names(options),
      files(options, cached),
      where(criteria),
      rest(files.criteria()),
      all(names.criteria()) {
    andAlso(rest, where);
    andAlso(all, rest);
}

ExitStatus runSearch(const Options& options, Output& out) {
    Summary summary(options);
    if (!summary.writable()) return ExitStatus::usage;
    const auto run = [&](const Search& search, bool incomplete) {
        if (options.explain) return explainRoots(search, out);
        const WorkerThreads threads(options.threads);
        return runAndReport(search, incomplete, summary, out);
    };
    const ExitStatus status = prepare(options, run);
    if (summary.written() || options.explain) return status;
    Outcome nothingSearched;
    nothingSearched.status = status;
    summary.write({}, nothingSearched);
    return status;
}

ExitStatus deliverPaths(const Options& options, const std::vector<std::string>& paths,
                        Output& out) {
    const auto deliver = [&](const Search& search, bool) {
        FactsNeeded needed = FactsNeeded::none;
        FileExaminer examiner(true, options.followLinks);
        const std::unique_ptr<MatchConsumer> consumer = makeConsumer(search, examiner, out, needed);
        if (!consumer) return ExitStatus::usage;
        DetailedMatches detailed(search.roots, examiner, *consumer);
        const bool all = passOn(paths, detailed, needed, *consumer);
        consumer->finish();
        return std::max(consumer->status(), all ? ExitStatus::found : ExitStatus::incomplete);
    };
    return prepare(options, deliver);
}

}  // namespace fscan
