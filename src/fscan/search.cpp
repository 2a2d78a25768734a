#include "search.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <set>

#include "asking.h"
#include "criteria.h"
#include "drives.h"
#include "excludes.h"
#include "exit_status.h"
#include "explain.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "interruption.h"
#include "messages.h"
#include "name_filter.h"
#include "options.h"
#include "output.h"
#include "progress_line.h"
#include "query_builder.h"
#include "record_printer.h"
#include "search_roots.h"
#include "sorted_matches.h"
#include "statistics.h"
#include "text.h"

namespace fscan {

namespace {

using fscanner::FsFileInfo;

/// What is found while one root is searched, on its way to the user.
class Matches {
public:
    /// `withFacts`: whether more than the path is of interest.
    Matches(const Excludes& excludes, const NameFilter& names, MatchSink& sink, bool withFacts)
        : excludes_(excludes), names_(names), sink_(sink), withFacts_(withFacts) {}

    void setRoot(const SearchRoot& root) {
        root_ = &root;
        directory_.clear();
    }
    const SearchRoot& root() const { return *root_; }

    bool nameFits(const FsFileInfo& record) const { return names_.accepts(record.getName()); }

    /// Whether the sink wants no more.
    bool stopped() const { return stopped_; }

    /// Passes the record on, unless another root reports it or it is left out.
    void add(const FsFileInfo& record) {
        if (directory_ != record.getPath()) enter(record.getPath());
        if (!owned_ || excludes_.cover(directory_, record.getName())) return;
        path_.resize(prefixLength_);
        path_ += toBytes(record.getName());
        const FileFacts facts = withFacts_ ? factsOf(record) : FileFacts();
        if (!stopped_) stopped_ = !sink_.take({path_, prefixLength_, facts});
    }

private:
    /// A file that is gone since a cache saw it has no time.
    static FileFacts factsOf(const FsFileInfo& record) {
        const bool there = record.updateInfo();
        return {there, record.getAttr(), record.getSize(), there ? record.getLastModifyTime() : 0};
    }
    /// Records come a directory at a time: what depends on it is computed once.
    void enter(const wchar_t* directory) {
        directory_ = directory;
        const std::wstring_view path = withoutFinalSlash(directory_);
        owned_ = root_->owns(path);
        path_ = root_->shown(path);
        if (!path_.ends_with('/')) path_ += '/';
        prefixLength_ = path_.size();
    }

    const Excludes& excludes_;
    const NameFilter& names_;
    MatchSink& sink_;
    bool withFacts_;
    bool stopped_ = false;
    const SearchRoot* root_ = nullptr;
    std::wstring directory_;
    bool owned_ = true;
    std::string path_;
    std::size_t prefixLength_ = 0;
};

/// Takes the engine's matches; once the program is to end, in vain.
class MatchWriter : public fscanner::FsResultSetWriter {
public:
    MatchWriter(Matches& matches, ProgressLine& line) : matches_(matches), line_(line) {}

    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override {
        if (Interruption::pending() || matches_.stopped()) return discard();
        FsFileInfo record;
        record.setFilePath(path);
        record.setFileName(name);
        record.setFileSize(size);
        record.setFileAttr(attributes);
        return addRecord(record);
    }
    int addRecord(const FsFileInfo& record) override {
        if (Interruption::pending()) return discard();
        if (!matches_.nameFits(record)) return 0;
        line_.erase();
        matches_.add(record);
        return 0;
    }
    int close() override { return 0; }

private:
    /// What follows is quick: the cache is to be closed properly.
    static int discard() {
        Interruption::answering();
        return 0;
    }

    Matches& matches_;
    ProgressLine& line_;
};

/// Watches the walks: tells how far they are, warns of directories that could not be
/// searched, decides on files that the criteria could not, and stops walks that nobody
/// wants to the end.
class Watcher : public fscanner::FsScanObserver {
public:
    Watcher(const SearchRoots& roots, const Excludes& excludes, Matches& matches,
            fscanner::FsRecordFilter* where, ProgressLine& line)
        : roots_(roots),
          excludes_(excludes),
          matches_(matches),
          where_(where),
          line_(line),
          previous_(fsSetScanObserver(this)) {}
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    ~Watcher() override { fsSetScanObserver(previous_); }

    /// Whether the coming walks fill the cache: they go on when nobody reads on, as
    /// half a tree would cost the cache, and see what the query leaves out.
    void expectCaching(bool caching) { caching_ = caching; }

    bool progress(const fscanner::FsScanProgress& progress) override {
        line_.show(progress);
        return !Interruption::pending() && (caching_ || !matches_.stopped());
    }

    void finished(const fscanner::FsScanProgress& totals) override {
        line_.erase();
        walked_.add(totals);
    }

    void skipped(const wchar_t* directory, fscanner::FsSkipReason reason, int error) override {
        using enum fscanner::FsSkipReason;
        if (reason == excluded || reason == otherFileSystem) return;
        const std::wstring path(withoutFinalSlash(directory));
        if (caching_ ? excludes_.cover(path) : !matches_.root().owns(path)) return;
        // A walk for the cache meets what lies below other roots, too.
        if (!told_.insert(path).second) return;
        const auto isPath = [&path](const SearchRoot& root) { return root.real == path; };
        if (std::any_of(roots_.roots.begin(), roots_.roots.end(), isPath)) incomplete_ = true;
        if (reason == tooLong) error = ENAMETOOLONG;
        if (reason == denied && error == 0) error = EACCES;
        if (error == 0) error = reason == vanished ? ENOENT : EIO;
        line_.erase();
        complain(matches_.root().shown(path), error);
    }

    /// The criteria failed as a whole. A name with a wildcard in it does that to
    /// the name patterns; the user's own criteria may well hold.
    void undecided(const FsFileInfo& file) override {
        if (!matches_.nameFits(file)) return;
        if (where_ != nullptr && !where_->matches(file)) return;
        line_.erase();
        matches_.add(file);
    }

    bool incomplete() const { return incomplete_; }
    const Walked& walked() const { return walked_; }

private:
    const SearchRoots& roots_;
    const Excludes& excludes_;
    Matches& matches_;
    fscanner::FsRecordFilter* where_;
    ProgressLine& line_;
    fscanner::FsScanObserver* previous_;
    std::set<std::wstring> told_;
    Walked walked_;
    bool caching_ = false;
    bool incomplete_ = false;
};

std::wstring bothCriteria(const std::wstring& names, const std::wstring& where) {
    if (names.empty() || where.empty()) return names + where;
    return names + L" && " + where;
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
        status = std::max(status, search.asking.report(code, root.given));
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
        status = std::max(status, explainQuery(search.asking, search.query, out));
    }
    return status;
}

/// Where matches are sorted, or null.
std::unique_ptr<SortedMatches> makeSorter(const Options& options) {
    if (!options.sortKey || options.countOnly) return nullptr;
    removeFilesOnSignals();
    return std::make_unique<SortedMatches>(SortOrder{*options.sortKey, options.reverse},
                                           options.spill ? 0 : SortedMatches::memoryBound);
}

/// Prints what was sorted. The exit status of that.
int printSorted(SortedMatches* sorter, RecordPrinter& printer) {
    if (sorter == nullptr || sorter->deliver(printer)) return STATUS_FOUND;
    complain("the temporary file of matches cannot be written or read; is the disk full?");
    return STATUS_FAILURE;
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
    fscanner::FsQuery query;
    fillQuery({options, roots, excludes, *drives, bothCriteria(names.criteria(), *where)}, query);
    const Search search{options, roots, *drives, *asking, query};
    if (options.explain) return explainRoots(search, out);

    RecordPrinter printer(options, out);
    const std::unique_ptr<SortedMatches> sorter = makeSorter(options);
    MatchSink& sink = sorter ? static_cast<MatchSink&>(*sorter) : printer;
    const bool withFacts = options.longFormat || options.sortKey == SortKey::size;
    Matches matches(excludes, names, sink, withFacts);
    std::unique_ptr<fscanner::FsRecordFilter> filter;
    if (!where->empty())
        filter = fscanner::FsRecordFilter::create(where->c_str(), !options.ignoreCase);
    ProgressLine line;
    Watcher watcher(roots, excludes, matches, filter.get(), line);

    const auto start = std::chrono::steady_clock::now();
    int status = searchSafely(search, out, matches, watcher, line);
    const auto time = std::chrono::steady_clock::now() - start;
    status = std::max(status, printSorted(sorter.get(), printer));
    printer.finish();
    if (options.statistics) {
        out.flush();
        showStatistics(printer.count(), watcher.walked(), asking->cached, time);
    }
    if (!mounted || roots.incomplete || watcher.incomplete())
        status = std::max<int>(status, STATUS_INCOMPLETE);
    if (status == STATUS_FOUND && printer.count() == 0) status = STATUS_NOTHING_FOUND;
    return status;
}

}  // namespace fscan
