#include "fscanner/engine/cache_watch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/engine/tree_changes.h"
#include "fscanner/engine/watch_protocol.h"
#include "fscanner/engine/watch_server.h"
#include "fscanner/engine/watched_trees.h"
#include "fscanner/fs/fs_events.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/no_throw.h"

// One thread, one loop. What waits: events of the monitor, questions of searches, a change of the
// mount table, and times at which something is due.
//
// The cache is never waited for: a search that asks holds its lock, and would wait for us.

namespace fscanner {

namespace {

using Clock = WatchedTree::Clock;
using std::chrono::milliseconds;

// While events come, they are taken in this often, and not one by one.
constexpr milliseconds kNap{40};
// The cache is changed at most for a fifth of the time, and at once when little happens.
constexpr milliseconds kSoonest{100};
constexpr milliseconds kLatest{5000};
constexpr int kPauseFactor = 4;
// Searches that go by sizes are told which directories to look at, so the cache can wait.
constexpr milliseconds kFactsPause{10'000};
constexpr milliseconds kLockPause{200};
constexpr milliseconds kFirstRetry{1000};
constexpr milliseconds kLastRetry{60'000};
constexpr unsigned kWakeOnce = EPOLLIN | EPOLLONESHOT;

epoll_event eventOf(int descriptor, unsigned events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    return event;
}

using Time = std::optional<Clock::time_point>;

bool isDue(Time when) {
    return when && *when <= Clock::now();
}

Time earliest(Time a, Time b) {
    return !a || (b && *b < *a) ? b : a;
}

std::wstring realPath(const std::wstring& path) {
    Directory directory;
    if (directory.openPath(toMultibyte(path).c_str(), DirectoryUse::reach, LinkUse::follow) != 0)
        return path;
    return toWide(directory.realPath());
}

}  // namespace

class FsCacheWatch::Inside {
public:
    Inside(const FsCacheSettings& settings, FsMonitor& monitor)
        : settings_(settings),
          tables_(fsCacheTableNames(settings.compressed)),
          monitor_(monitor),
          trees_(monitor),
          queue_("fscanner-watch-" + std::to_string(::getpid()) + "-" +
                 std::to_string(reinterpret_cast<std::uintptr_t>(this))),
          server_([this](const WatchQuestion& question) { return answer(question); }) {}

    int begin(const FsQuery& query, std::wstring& problem);
    int descriptor() const { return poll_.get(); }
    int step();
    FsWatchReport report() const;

private:
    // A session's view of what is to be done.
    class Known : public ChangeSource {
    public:
        Known(const Inside& watch, const ChangeSet& changes) : watch_(watch), changes_(changes) {}
        std::optional<TreeChanges> changesIn(const wchar_t* path) override;

    private:
        const Inside& watch_;
        const ChangeSet& changes_;
    };

    bool openDirectory(std::wstring& problem);
    bool openDescriptors();
    bool listen(int descriptor, unsigned events);

    // Events.
    void lookAtMounts();
    void takeEvents();
    void drain();
    void take(const FS_Event& event);
    void lose(const wchar_t* path, bool watched);

    // The cache.
    Time nextApplying() const;
    void planApplying();
    void apply();
    int change(const ChangeSet& changes);
    void retryLater(milliseconds pause);

    // Searches.
    void serve();
    std::optional<TreeChanges> answer(const WatchQuestion& question);

    void setTimer();

    FsCacheSettings settings_;
    FsCacheTableNames tables_;
    std::wstring ownDirectory_;  // the cache's, by its real path
    FsMonitor& monitor_;
    const FsQuery* query_ = nullptr;
    WatchedTrees trees_;
    FS_Queue queue_;
    bool mountsMoved_ = false;  // those inside the trees
    ChangeSet changes_;

    Descriptor lock_;
    Descriptor poll_;
    Descriptor timer_;
    Descriptor mounts_;
    Descriptor mountsWake_;
    WatchServer server_;
    std::uint64_t othersChanges_ = 0;  // of the cache, which we know of

    Time serveAt_;
    Time drainAt_;
    Time applyAt_;
    bool applySoon_ = false;  // `applyAt_` is for more than facts
    milliseconds pause_ = kSoonest;
    milliseconds retry_ = kFirstRetry;
    FsWatchReport report_;
};

// ---- Begin and end ----------------------------------------------------------

int FsCacheWatch::Inside::begin(const FsQuery& query, std::wstring& problem) {
    query_ = &query;
    if (!openDirectory(problem)) return FS_CACHE_FAILURE;
    lock_ = openAt(AT_FDCWD, (toMultibyte(settings_.directory) + "/" + kWatchLockName).c_str(),
                   O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (!lock_ || ::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
        const bool taken = lock_ && errno == EWOULDBLOCK;
        problem = taken ? L"another process watches this cache"
                        : L"the watcher's lock in the cache directory cannot be taken";
        return taken ? FS_CACHE_LOCK_TIMED_OUT : FS_CACHE_FAILURE;
    }
    if (!openDescriptors()) {
        problem = L"the socket of the watch cannot be made: " + toWide(std::strerror(errno));
        return FS_CACHE_FAILURE;
    }
    trees_.plan(query);
    trees_.watch();
    if (trees_.anyWatched()) {
        applyAt_ = Clock::now();
        applySoon_ = true;
        setTimer();
        return FS_CACHE_SUCCESS;
    }
    problem = trees_.empty() ? L"no path lies on a local drive" : trees_.begin()->problem;
    return FS_CACHE_UNUSABLE;
}

bool FsCacheWatch::Inside::openDirectory(std::wstring& problem) {
    if (settings_.directory.empty()) settings_.directory = fsDefaultCacheDirectory();
    if (!fsPrepareCacheDirectory(settings_.directory.c_str(), problem)) return false;
    ownDirectory_ = realPath(settings_.directory);
    return true;
}

bool FsCacheWatch::Inside::openDescriptors() {
    poll_ = aboveStandardStreams(Descriptor(::epoll_create1(EPOLL_CLOEXEC)));
    timer_ = aboveStandardStreams(
        Descriptor(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)));
    mounts_ = openAt(AT_FDCWD, "/proc/self/mountinfo", O_RDONLY);
    mountsWake_ = openAt(AT_FDCWD, "/proc/self/mountinfo", O_RDONLY);
    return poll_ && timer_ && mounts_ && mountsWake_ && server_.open(settings_.directory) &&
           listen(timer_.get(), EPOLLIN) && listen(mountsWake_.get(), EPOLLPRI) &&
           listen(server_.descriptor(), EPOLLIN) &&
           (monitor_.descriptor() < 0 || listen(monitor_.descriptor(), kWakeOnce));
}

bool FsCacheWatch::Inside::listen(int descriptor, unsigned events) {
    epoll_event event = eventOf(descriptor, events);
    return ::epoll_ctl(poll_.get(), EPOLL_CTL_ADD, descriptor, &event) == 0;
}

FsWatchReport FsCacheWatch::Inside::report() const {
    FsWatchReport report = report_;
    for (const WatchedTree& tree : trees_) {
        ++report.trees;
        if (tree.current) ++report.current;
        if (!tree.problem.empty()) report.problems.push_back(tree.problem);
    }
    return report;
}

int FsCacheWatch::Inside::step() {
    std::array<epoll_event, 32> events;
    const int count = uninterrupted([&] {
        return ::epoll_wait(poll_.get(), events.data(), static_cast<int>(events.size()), 0);
    });
    if (count < 0) return FS_CACHE_FAILURE;
    for (int i = 0; i < count; ++i) {
        const int descriptor = events[static_cast<std::size_t>(i)].data.fd;
        if (descriptor == timer_.get()) {
            std::uint64_t ticks = 0;
            (void)!::read(timer_.get(), &ticks, sizeof ticks);
        } else if (descriptor == server_.descriptor()) {
            serveAt_ = Clock::now();
        } else if (descriptor == monitor_.descriptor()) {
            drainAt_ = Clock::now();
        }
    }
    lookAtMounts();
    if (isDue(serveAt_)) serve();
    if (isDue(drainAt_)) takeEvents();
    if (isDue(nextApplying())) apply();
    setTimer();
    return FS_CACHE_SUCCESS;
}

// An event wakes us once. Then a timer does, as long as more have come meanwhile.
void FsCacheWatch::Inside::takeEvents() {
    pollfd monitor{monitor_.descriptor(), POLLIN, 0};
    drainAt_.reset();
    if (::poll(&monitor, 1, 0) > 0) {
        drain();
        drainAt_ = Clock::now() + kNap;
    } else {
        epoll_event event = eventOf(monitor.fd, kWakeOnce);
        ::epoll_ctl(poll_.get(), EPOLL_CTL_MOD, monitor.fd, &event);
    }
}

void FsCacheWatch::Inside::setTimer() {
    const auto next = earliest(earliest(drainAt_, serveAt_), nextApplying());
    itimerspec when{};
    if (next) {
        // A time of 0 would stop the timer.
        const auto left = std::max<std::chrono::nanoseconds>(*next - Clock::now(), milliseconds(1));
        when.it_value.tv_sec = left.count() / 1'000'000'000;
        when.it_value.tv_nsec = left.count() % 1'000'000'000;
    }
    ::timerfd_settime(timer_.get(), 0, &when, nullptr);
}

// ---- Events -----------------------------------------------------------------

// A tree whose mounts are others is compared again: a directory may have come to light. The file
// tells of a change once, to whoever asks first: who waits for the watch has asked the other one.
void FsCacheWatch::Inside::lookAtMounts() {
    pollfd mounts{mounts_.get(), POLLPRI, 0};
    if (::poll(&mounts, 1, 0) <= 0) return;
    trees_.plan(*query_);
    planApplying();
}

void FsCacheWatch::Inside::drain() {
    const int taken = monitor_.take(queue_);
    for (const FS_Event& event : queue_.takeAll()) {
        ++report_.events;
        take(event);
    }
    if (taken < 0) lose(nullptr, false);
    if (changes_.isTooLarge()) lose(nullptr, true);
    if (std::exchange(mountsMoved_, false)) trees_.plan(*query_);
    planApplying();
}

void FsCacheWatch::Inside::take(const FS_Event& event) {
    const wchar_t* const path = event.getEntry();
    const unsigned action = event.getAction();
    const bool isLoss = (action & FS_EVENT_OVERFLOW) != 0 ||
                        ((action & FS_EVENT_UNWATCHED) != 0 && path && !trees_.leaveUnseen(path));
    if (!path || *path == 0 || isLoss)
        return lose(path && *path != 0 ? path : nullptr, (action & FS_EVENT_UNWATCHED) == 0);
    if (action & FS_EVENT_DIRECTORY && action & ~(FS_EVENT_DIRECTORY | FS_EVENT_ATTRIBUTES))
        mountsMoved_ = trees_.takeMove(path) || mountsMoved_;
    const std::wstring_view entry = path;
    const std::wstring_view directory =
        entry.substr(0, std::max<std::size_t>(entry.rfind(L'/'), 1));
    if (trees_.treeOf(directory) || trees_.treeOf(entry)) changes_.add(event);
}

// The next answers are verified.
void FsCacheWatch::Inside::lose(const wchar_t* path, bool watched) {
    ++report_.losses;
    if (!path) changes_.clear();
    trees_.lose(path, watched);
}

// ---- The cache --------------------------------------------------------------

void FsCacheWatch::Inside::planApplying() {
    // What we do to the cache ourselves is no reason to change it again.
    constexpr unsigned soon = ChangedDirectory::names | ChangedDirectory::below;
    const bool isSoon = trees_.anyUnverified() || changes_.hasBeside(ownDirectory_, soon);
    const bool isLate = changes_.hasBeside(ownDirectory_, ChangedDirectory::facts);
    if (applyAt_ && (applySoon_ || !isSoon)) return;
    if (!isSoon && !isLate) return;
    applySoon_ = isSoon;
    applyAt_ = Clock::now() + (isSoon ? pause_ : std::max(pause_, kFactsPause));
}

Time FsCacheWatch::Inside::nextApplying() const {
    return earliest(applyAt_, trees_.nextWatch());
}

void FsCacheWatch::Inside::retryLater(milliseconds pause) {
    applyAt_ = Clock::now() + pause;
    applySoon_ = true;
}

void FsCacheWatch::Inside::apply() {
    applyAt_.reset();
    applySoon_ = false;
    if (!trees_.planned()) trees_.plan(*query_);
    trees_.watch();
    drain();
    applyAt_.reset();
    const auto start = Clock::now();
    ChangeSet taken = std::exchange(changes_, {});
    const int status = change(taken);
    pause_ =
        std::clamp(std::chrono::duration_cast<milliseconds>(Clock::now() - start) * kPauseFactor,
                   kSoonest, kLatest);
    if (status == FS_CACHE_SUCCESS) {
        ++report_.updates;
    } else {
        changes_.add(taken);
        if (status == FS_CACHE_LOCK_TIMED_OUT) return retryLater(kLockPause);
    }
    report_.lastStatus = status;
    if (status == FS_CACHE_SUCCESS && trees_.planned()) {
        retry_ = kFirstRetry;
        return;
    }
    retryLater(retry_);
    retry_ = std::min(retry_ * 2, kLastRetry);
}

// Builds the trees that are not there, and brings the others up to date.
int FsCacheWatch::Inside::change(const ChangeSet& changes) {
    FS_Cache cache(tables_.directories.c_str(), tables_.files.c_str(), settings_.directory.c_str(),
                   false, settings_.compressed, true);
    cache.setSizeLimit(settings_.limit);
    cache.setVerification(true);
    if (const int status = cache.lock(1)) return status;
    if (readChangeCount(lock_.get()) != othersChanges_) trees_.distrust();
    trees_.checkPlaces();
    int status = cache.create(0, FS_CACHE_OPEN_ALWAYS);
    Known known(*this, changes);
    if (status == FS_CACHE_SUCCESS)
        status = cache.keepCurrent(*query_, trees_.queryPlan(), trees_.watchedPairs(), known);
    const bool closed = cache.close();
    if (status == FS_CACHE_SUCCESS && !closed) status = FS_CACHE_FAILURE;
    cache.compact();
    const std::optional<std::uint64_t> count = readChangeCount(lock_.get());
    cache.unlock();
    if (status == FS_CACHE_SUCCESS && !count) status = FS_CACHE_FAILURE;
    if (status != FS_CACHE_SUCCESS) return status;
    othersChanges_ = *count;
    trees_.setCurrent();
    trees_.checkPlaces();
    return status;
}

std::optional<TreeChanges> FsCacheWatch::Inside::Known::changesIn(const wchar_t* path) {
    const WatchedTree* const tree = watch_.trees_.treeOf(path);
    if (!tree || !tree->current) return std::nullopt;
    TreeChanges changes = tree->changesIn(path, changes_);
    changes.applied = true;
    return changes;
}

// ---- Searches ---------------------------------------------------------------

void FsCacheWatch::Inside::serve() {
    serveAt_.reset();
    if (!server_.step()) serveAt_ = Clock::now() + kLockPause;
}

// All that the kernel has queued is taken in first: what was complete before the question is known.
std::optional<TreeChanges> FsCacheWatch::Inside::answer(const WatchQuestion& question) {
    lookAtMounts();
    drain();
    if (readChangeCount(lock_.get()) != othersChanges_) trees_.distrust();
    trees_.checkPlaces(question.path);
    planApplying();
    const WatchedTree* const tree = trees_.treeOf(question.path);
    if (question.table != tables_.directories || !tree || !tree->current ||
        tree->place->mount != question.place.mount ||
        watchPlaceOf(question.path.c_str()) != question.place)
        return std::nullopt;
    ++report_.answers;
    return tree->changesIn(question.path, changes_);
}

// ---- What hosts call --------------------------------------------------------

FsCacheWatch::FsCacheWatch(const FsCacheSettings& settings, FsMonitor& monitor)
    : inside_(noThrow("FsCacheWatch", std::unique_ptr<Inside>(),
                      [&] { return std::make_unique<Inside>(settings, monitor); })) {}

FsCacheWatch::~FsCacheWatch() = default;

int FsCacheWatch::begin(const FsQuery& query, std::wstring& problem) {
    if (!inside_) return FS_CACHE_FAILURE;
    return noThrow("FsCacheWatch::begin", int{FS_CACHE_FAILURE},
                   [&] { return inside_->begin(query, problem); });
}

int FsCacheWatch::descriptor() const {
    return inside_ ? inside_->descriptor() : -1;
}

int FsCacheWatch::step() {
    if (!inside_) return FS_CACHE_FAILURE;
    return noThrow("FsCacheWatch::step", int{FS_CACHE_FAILURE}, [&] { return inside_->step(); });
}

FsWatchReport FsCacheWatch::report() const {
    if (!inside_) return {};
    return noThrow("FsCacheWatch::report", FsWatchReport(), [&] { return inside_->report(); });
}

}  // namespace fscanner
