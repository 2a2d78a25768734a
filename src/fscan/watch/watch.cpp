#include "fscan/watch/watch.h"

#include <fmt/format.h>
#include <malloc.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "fscan/cache/cache_place.h"
#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/process/worker_threads.h"
#include "fscan/query/filters.h"
#include "fscan/query/query_builder.h"
#include "fscan/query/search_roots.h"
#include "fscan/text/text.h"
#include "fscan/watch/service_manager.h"
#include "fscanner/engine/cache_watch.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_loader.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscan {

namespace {

using fscanner::FsCacheWatch;
using fscanner::FsMonitor;
using fscanner::FsWatchReport;

/// While it lives, the signals that end a process wait here. A tree that is being read is given up
/// when one comes.
class EndingSignals : public fscanner::FsScanObserver {
public:
    EndingSignals() : previous_(fscanner::fsSetScanObserver(this)) {
        sigemptyset(&set_);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&set_, signal);
        sigprocmask(SIG_BLOCK, &set_, nullptr);
        descriptor_ = ::signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    EndingSignals(const EndingSignals&) = delete;
    EndingSignals& operator=(const EndingSignals&) = delete;
    ~EndingSignals() override {
        fscanner::fsSetScanObserver(previous_);
        if (descriptor_ >= 0) ::close(descriptor_);
    }

    int descriptor() const { return descriptor_; }
    bool progress(const fscanner::FsScanProgress&) override {
        pollfd poll{descriptor_, POLLIN, 0};
        return ::poll(&poll, 1, 0) == 0;
    }

private:
    fscanner::FsScanObserver* previous_;
    sigset_t set_{};
    int descriptor_ = -1;
};

/// The watch of one monitor.
class Watch {
public:
    explicit Watch(const char* name)
        : monitor_(fscanner::FsLoader::loadFsMonitor(name, &settings())), name_(name) {}

    /// An `FS_CACHE_...`; -40 where another monitor may do better.
    int begin(const fscanner::FsCacheSettings& cache, const fscanner::FsQuery& query,
              std::string& problem);
    /// Until a signal comes.
    ExitStatus run(const EndingSignals& signals);
    FsWatchReport report() const { return watch_->report(); }

private:
    void tell(const FsWatchReport& report);

    std::unique_ptr<FsMonitor> monitor_;
    std::optional<FsCacheWatch> watch_;
    std::string name_;
    std::vector<std::wstring> told_;  // the problems of now
    bool ready_ = false;
};

int Watch::begin(const fscanner::FsCacheSettings& cache, const fscanner::FsQuery& query,
                 std::string& problem) {
    problem = name_ + ": the plug-in cannot be loaded; --debug-log tells why";
    if (!monitor_) return fscanner::FS_CACHE_UNUSABLE;
    watch_.emplace(cache, *monitor_);
    std::wstring why;
    const int status = watch_->begin(query, why);
    problem = toBytes(why);
    return status;
}

// Each problem when it is new. The trees that can be watched are waited for, and no others.
void Watch::tell(const FsWatchReport& report) {
    for (const std::wstring& problem : report.problems)
        if (std::find(told_.begin(), told_.end(), problem) == told_.end())
            complain("not watched: " + toBytes(problem));
    told_ = report.problems;
    const bool ready = report.current + report.problems.size() >= report.trees;
    if (ready && !ready_) tellServiceManager("READY=1\n");
    if (ready != ready_)
        tellServiceManager(fmt::format("STATUS={} of {} trees up to date, by {}\n", report.current,
                                       report.trees, name_));
    ready_ = ready;
}

// A comparison of a tree takes memory that nobody needs until the next one.
void giveMemoryBack() {
#ifdef __GLIBC__
    malloc_trim(0);
#endif
}

ExitStatus Watch::run(const EndingSignals& signals) {
    std::array<pollfd, 2> polls{
        {{watch_->descriptor(), POLLIN, 0}, {signals.descriptor(), POLLIN, 0}}};
    unsigned long long updates = 0;
    for (;;) {
        if (::poll(polls.data(), polls.size(), -1) < 0 && errno != EINTR) break;
        if (polls[1].revents != 0) return ExitStatus::found;
        if (watch_->step() != fscanner::FS_CACHE_SUCCESS) break;
        const FsWatchReport report = watch_->report();
        tell(report);
        if (std::exchange(updates, report.updates) != report.updates) giveMemoryBack();
    }
    complain("the watch cannot go on");
    return ExitStatus::failure;
}

void writeStatistics(const FsWatchReport& report) {
    complain(
        fmt::format("events: {}; changes of the cache: {}; searches answered: {}; "
                    "losses of events: {}",
                    report.events, report.updates, report.answers, report.losses));
}

ExitStatus watchWith(const char* monitor, const fscanner::FsCacheSettings& cache,
                     const fscanner::FsQuery& query, const Options& options,
                     const EndingSignals& signals, int& code, std::string& problem) {
    Watch watch(monitor);
    code = watch.begin(cache, query, problem);
    if (code != fscanner::FS_CACHE_SUCCESS) return ExitStatus::failure;
    const ExitStatus status = watch.run(signals);
    tellServiceManager("STOPPING=1\n");
    if (options.statistics) writeStatistics(watch.report());
    return status;
}

/// fanotify needs root, and watches a file system at once; inotify watches each directory.
ExitStatus watchTrees(const fscanner::FsCacheSettings& cache, const fscanner::FsQuery& query,
                      const Options& options) {
    const EndingSignals signals;
    const WorkerThreads threads(options.threads);
    std::string problems;
    for (const char* monitor : {"monitor_fanotify", "monitor_inotify"}) {
        int code = fscanner::FS_CACHE_SUCCESS;
        std::string problem;
        const ExitStatus status = watchWith(monitor, cache, query, options, signals, code, problem);
        if (code == fscanner::FS_CACHE_SUCCESS) return status;
        if (problem != problems) problems += (problems.empty() ? "" : "; ") + problem;
        if (code != fscanner::FS_CACHE_UNUSABLE) break;
    }
    complain(problems);
    return ExitStatus::failure;
}

}  // namespace

ExitStatus runWatch(const Options& options) {
    const SearchRoots roots = SearchRoots::resolve(options);
    if (roots.wrong || roots.incomplete) return ExitStatus::usage;
    const std::optional<DriveList> drives = DriveList::read();
    if (!drives) return ExitStatus::failure;
    const std::optional<Excludes> excludes = Excludes::read(options, *drives, roots);
    if (!excludes) return ExitStatus::usage;
    fscanner::FsQuery query;
    fillQuery({options, roots, *excludes, *drives, L"", false}, query);
    for (SearchRoot root : roots.roots) {
        root.drives &= localDrives;
        addSearchedPath(options, root, query);
    }
    const CachePlace place = CachePlace::of(options);
    fscanner::FsCacheSettings cache = fscanner::fsCacheSettings(settings());
    cache.directory = place.directory;
    cache.compressed = place.compressed;
    return watchTrees(cache, query, options);
}

}  // namespace fscan
