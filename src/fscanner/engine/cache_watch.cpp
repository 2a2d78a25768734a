#include "fscanner/engine/cache_watch.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <cwchar>
#include <limits>
#include <map>
#include <optional>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/engine/cache_verify.h"
#include "fscanner/engine/query_plan.h"
#include "fscanner/engine/tree_changes.h"
#include "fscanner/engine/watch_protocol.h"
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

using Clock = std::chrono::steady_clock;
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
constexpr std::size_t kMostClients = 64;
constexpr unsigned kWakeOnce = EPOLLIN | EPOLLONESHOT;

epoll_event eventOf(int descriptor, unsigned events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    return event;
}

struct WatchedTree {
    PathDrive pair;
    std::optional<WatchPlace> place;
    bool watched = false;
    bool current = false;
    unsigned firstId = 0;
    std::wstring problem;
    std::vector<std::wstring> mounts;   // the mount points inside
    std::vector<std::wstring> crossed;  // those that a scan crosses: events tell nothing of them

    const wchar_t* path() const { return pair.path.getPathName(); }
};

struct Client {
    Descriptor socket;
    std::string in;
    std::string out;
};

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
          queue_("fscanner-watch-" + std::to_string(::getpid()) + "-" +
                 std::to_string(reinterpret_cast<std::uintptr_t>(this))) {}

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

    // Trees.
    void planTrees();
    void watchTree(WatchedTree& tree);
    void lookAtMounts();
    const WatchedTree* treeOf(const std::wstring& path) const;
    static TreeChanges changesOf(const WatchedTree& tree, const ChangeSet& changes,
                                 std::wstring_view path);
    bool isInTree(std::wstring_view path) const;

    // Events.
    void drain();
    void take(const FS_Event& event);
    void takeMove(std::wstring_view path);
    void lose(const wchar_t* path, bool watched);
    void takeEvents();

    // The cache.
    bool isApplyDue() const { return applyAt_ && *applyAt_ <= Clock::now(); }
    void planApplying();
    void apply();
    int change(const ChangeSet& changes);
    void retryLater(milliseconds pause);

    // Searches.
    void accept();
    void serve(int descriptor, unsigned events);
    bool read(Client& client);
    bool write(Client& client);
    std::optional<TreeChanges> answer(const WatchQuestion& question);

    void setTimer();

    FsCacheSettings settings_;
    FsCacheTableNames tables_;
    std::wstring ownDirectory_;  // the cache's, by its real path
    FsMonitor& monitor_;
    const FsQuery* query_ = nullptr;
    FS_Queue queue_;
    QueryPlan plan_;
    bool planned_ = false;      // the plan is that of the present mounts
    bool mountsMoved_ = false;  // those inside the trees
    std::vector<WatchedTree> trees_;
    ChangeSet changes_;

    Descriptor lock_;
    Descriptor poll_;
    Descriptor timer_;
    Descriptor mounts_;
    Descriptor mountsWake_;
    Descriptor socket_;
    std::map<int, Client> clients_;

    std::optional<Clock::time_point> drainAt_;
    std::optional<Clock::time_point> applyAt_;
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
    planTrees();
    const auto watched = [](const WatchedTree& tree) { return tree.watched; };
    if (std::any_of(trees_.begin(), trees_.end(), watched)) {
        applyAt_ = Clock::now();
        applySoon_ = true;
        setTimer();
        return FS_CACHE_SUCCESS;
    }
    problem = trees_.empty() ? L"no path lies on a local drive" : trees_.front().problem;
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
    socket_ = listenAt(settings_.directory, kWatchSocketName);
    return poll_ && timer_ && mounts_ && mountsWake_ && socket_ && listen(timer_.get(), EPOLLIN) &&
           listen(mountsWake_.get(), EPOLLPRI) && listen(socket_.get(), EPOLLIN) &&
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
        } else if (descriptor == socket_.get()) {
            accept();
        } else if (descriptor == monitor_.descriptor()) {
            drainAt_ = Clock::now();
        } else if (descriptor != mountsWake_.get()) {
            serve(descriptor, events[static_cast<std::size_t>(i)].events);
        }
    }
    lookAtMounts();
    if (drainAt_ && *drainAt_ <= Clock::now()) takeEvents();
    if (isApplyDue()) apply();
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
    std::optional<Clock::time_point> next = drainAt_;
    if (applyAt_ && (!next || *applyAt_ < *next)) next = applyAt_;
    itimerspec when{};
    if (next) {
        // A time of 0 would stop the timer.
        const auto left = std::max<std::chrono::nanoseconds>(*next - Clock::now(), milliseconds(1));
        when.it_value.tv_sec = left.count() / 1'000'000'000;
        when.it_value.tv_nsec = left.count() % 1'000'000'000;
    }
    ::timerfd_settime(timer_.get(), 0, &when, nullptr);
}

// ---- Trees ------------------------------------------------------------------

void FsCacheWatch::Inside::planTrees() {
    QueryPlan plan;
    planned_ = plan.make(*query_);
    if (!planned_) return lose(nullptr, false);
    plan_ = std::move(plan);
    std::vector<WatchedTree> trees;
    for (const PathDrive& pair : plan_.pairs()) {
        if (!QueryPlan::isLocal(pair)) continue;
        const auto known = std::find_if(trees_.begin(), trees_.end(), [&](const WatchedTree& tree) {
            return std::wstring_view(tree.path()) == pair.path.getPathName();
        });
        WatchedTree tree = known != trees_.end() ? *known : WatchedTree();
        tree.pair = PathDrive{PathInfo(pair.path.getPathName(), true), pair.drive};
        std::vector<std::wstring> mounts = plan_.mounts().withoutCrossing().stopsInside(tree.pair);
        const std::optional<WatchPlace> place = watchPlaceOf(tree.path());
        // A directory that came to light where a drive was has no watch of its own yet.
        const bool others =
            !tree.watched || place != tree.place || place->reused || mounts != tree.mounts;
        tree.crossed = mounts;
        std::erase_if(tree.crossed, [&](const std::wstring& point) {
            return plan_.mounts().stops(point, pair.drive);
        });
        tree.mounts = std::move(mounts);
        if (others) watchTree(tree);
        trees.push_back(std::move(tree));
    }
    for (const WatchedTree& old : trees_)
        if (std::none_of(trees.begin(), trees.end(), [&](const WatchedTree& tree) {
                return std::wstring_view(tree.path()) == old.path();
            }))
            monitor_.unwatch(old.path());
    trees_ = std::move(trees);
}

void FsCacheWatch::Inside::watchTree(WatchedTree& tree) {
    tree.current = false;
    tree.watched = false;
    tree.problem.clear();
    if (!isVerifiable(tree.path())) {
        tree.problem = L"its file system does not tell of changes";
    } else if (monitor_.watch(tree.path(), tree.problem) == 0) {
        tree.place = watchPlaceOf(tree.path());
        tree.watched = tree.place.has_value();
        tree.problem = tree.watched ? L"" : L"the system does not number mounts";
    }
    if (!tree.watched) tree.problem = std::wstring(tree.path()) + L": " + tree.problem;
}

// A tree whose mounts are others is compared again: a directory may have come to light. The file
// tells of a change once, to whoever asks first: who waits for the watch has asked the other one.
void FsCacheWatch::Inside::lookAtMounts() {
    pollfd mounts{mounts_.get(), POLLPRI, 0};
    if (::poll(&mounts, 1, 0) <= 0) return;
    planTrees();
    planApplying();
}

const WatchedTree* FsCacheWatch::Inside::treeOf(const std::wstring& path) const {
    const WatchedTree* found = nullptr;
    for (const WatchedTree& tree : trees_)
        if (isWithin(path, tree.path()) &&
            (!found || std::wcslen(tree.path()) > std::wcslen(found->path())))
            found = &tree;
    return found;
}

bool FsCacheWatch::Inside::isInTree(std::wstring_view path) const {
    return std::any_of(trees_.begin(), trees_.end(),
                       [&](const WatchedTree& tree) { return isWithin(path, tree.path()); });
}

// ---- Events -----------------------------------------------------------------

void FsCacheWatch::Inside::drain() {
    const int taken = monitor_.take(queue_);
    for (const FS_Event& event : queue_.takeAll()) {
        ++report_.events;
        take(event);
    }
    if (taken < 0) lose(nullptr, false);
    if (changes_.isTooLarge()) lose(nullptr, true);
    if (std::exchange(mountsMoved_, false)) planTrees();
    planApplying();
}

void FsCacheWatch::Inside::take(const FS_Event& event) {
    const wchar_t* const path = event.getEntry();
    const unsigned action = event.getAction();
    if (!path || *path == 0 || action & (FS_EVENT_OVERFLOW | FS_EVENT_UNWATCHED))
        return lose(path && *path != 0 ? path : nullptr, (action & FS_EVENT_UNWATCHED) == 0);
    if (action & FS_EVENT_DIRECTORY && action & ~(FS_EVENT_DIRECTORY | FS_EVENT_ATTRIBUTES))
        takeMove(path);
    const std::wstring_view entry = path;
    if (isInTree(entry.substr(0, std::max<std::size_t>(entry.rfind(L'/'), 1))) || isInTree(entry))
        changes_.add(event);
}

// The way to a tree may be another one. The same goes for the mount points inside, of which the
// mount table tells nobody.
void FsCacheWatch::Inside::takeMove(std::wstring_view path) {
    const auto isInside = [path](const std::wstring& point) { return isWithin(point, path); };
    for (WatchedTree& tree : trees_) {
        if (isWithin(tree.path(), path)) tree.watched = tree.current = false;
        if (std::any_of(tree.mounts.begin(), tree.mounts.end(), isInside)) mountsMoved_ = true;
    }
}

// Events of a tree were lost, or of all: the next answers are verified.
void FsCacheWatch::Inside::lose(const wchar_t* path, bool watched) {
    ++report_.losses;
    if (!path) changes_.clear();
    for (WatchedTree& tree : trees_)
        if (!path || isWithin(path, tree.path()) || isWithin(tree.path(), path))
            tree.current = false, tree.watched = tree.watched && watched;
}

// ---- The cache --------------------------------------------------------------

void FsCacheWatch::Inside::planApplying() {
    const bool unverified = std::any_of(trees_.begin(), trees_.end(), [](const WatchedTree& tree) {
        return !tree.current && (tree.watched || tree.problem.empty());
    });
    // What we do to the cache ourselves is no reason to change it again.
    constexpr unsigned soon = ChangedDirectory::names | ChangedDirectory::below;
    const bool isSoon = unverified || changes_.hasBeside(ownDirectory_, soon);
    const bool isLate = changes_.hasBeside(ownDirectory_, ChangedDirectory::facts);
    if (applyAt_ && (applySoon_ || !isSoon)) return;
    if (!isSoon && !isLate) return;
    applySoon_ = isSoon;
    applyAt_ = Clock::now() + (isSoon ? pause_ : std::max(pause_, kFactsPause));
}

void FsCacheWatch::Inside::retryLater(milliseconds pause) {
    applyAt_ = Clock::now() + pause;
    applySoon_ = true;
}

void FsCacheWatch::Inside::apply() {
    applyAt_.reset();
    applySoon_ = false;
    if (!planned_) planTrees();
    for (WatchedTree& tree : trees_)
        if (!tree.watched) watchTree(tree);
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
    const bool unwatched = std::any_of(trees_.begin(), trees_.end(),
                                       [](const WatchedTree& tree) { return !tree.watched; });
    if (status == FS_CACHE_SUCCESS && planned_ && !unwatched) {
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
    int status = cache.create(0, FS_CACHE_OPEN_ALWAYS);
    unsigned lastId = 0;
    Known known(*this, changes);
    std::vector<PathDrive> pairs;
    for (const WatchedTree& tree : trees_)
        if (tree.watched && planned_) pairs.push_back(tree.pair);
    if (status == FS_CACHE_SUCCESS)
        status = cache.keepCurrent(*query_, plan_, pairs, known, lastId);
    const bool closed = cache.close();
    if (status == FS_CACHE_SUCCESS && !closed) status = FS_CACHE_FAILURE;
    cache.compact();
    cache.unlock();
    if (status != FS_CACHE_SUCCESS) return status;
    for (WatchedTree& tree : trees_) {
        if (!tree.watched || tree.current || !planned_) continue;
        tree.current = true;
        tree.firstId = lastId;
    }
    return status;
}

// What lies below a mount point that a scan crosses is compared each time.
TreeChanges FsCacheWatch::Inside::changesOf(const WatchedTree& tree, const ChangeSet& changes,
                                            std::wstring_view path) {
    const auto isInside = [path](const std::wstring& point) { return isWithin(point, path); };
    if (std::none_of(tree.crossed.begin(), tree.crossed.end(), isInside))
        return {tree.firstId, false, changes.within(path)};
    ChangeSet all = changes;
    for (const std::wstring& point : tree.crossed) all.add(point, ChangedDirectory::below);
    return {std::numeric_limits<unsigned>::max(), false, all.within(path)};
}

std::optional<TreeChanges> FsCacheWatch::Inside::Known::changesIn(const wchar_t* path) {
    const WatchedTree* const tree = watch_.treeOf(path);
    if (!tree || !tree->current) return std::nullopt;
    TreeChanges changes = changesOf(*tree, changes_, path);
    changes.applied = true;
    return changes;
}

// ---- Searches ---------------------------------------------------------------

void FsCacheWatch::Inside::accept() {
    while (clients_.size() < kMostClients) {
        Descriptor client = aboveStandardStreams(
            Descriptor(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)));
        if (!client) return;
        const int descriptor = client.get();
        if (isTrustedPeer(descriptor) && listen(descriptor, EPOLLIN))
            clients_[descriptor].socket = std::move(client);
    }
    // Those who ask nothing make room.
    clients_.erase(clients_.begin());
}

void FsCacheWatch::Inside::serve(int descriptor, unsigned events) {
    const auto client = clients_.find(descriptor);
    if (client == clients_.end()) return;
    const bool goesOn = client->second.out.empty() ? read(client->second) : write(client->second);
    if (!goesOn || (events & (EPOLLERR | EPOLLHUP)) != 0) clients_.erase(client);
}

// False when the client is done with.
bool FsCacheWatch::Inside::read(Client& client) {
    std::array<char, 4096> buffer;
    const ssize_t got =
        uninterrupted([&] { return ::recv(client.socket.get(), buffer.data(), buffer.size(), 0); });
    if (got <= 0) return got < 0 && errno == EAGAIN;
    client.in.append(buffer.data(), static_cast<std::size_t>(got));
    const std::optional<std::size_t> length = messageLength(client.in);
    if (!length) return true;
    if (*length < kLengthBytes || *length > kLongestQuestion || *length < client.in.size())
        return false;
    if (*length > client.in.size()) return true;
    WatchQuestion question;
    if (!decode(std::string_view(client.in).substr(kLengthBytes), question)) return false;
    client.in.clear();
    client.out = encode(answer(question));
    if (client.out.empty()) client.out = encode(std::optional<TreeChanges>());
    return write(client);
}

bool FsCacheWatch::Inside::write(Client& client) {
    const ssize_t sent = uninterrupted([&] {
        return ::send(client.socket.get(), client.out.data(), client.out.size(), MSG_NOSIGNAL);
    });
    if (sent < 0 && errno != EAGAIN) return false;
    if (sent > 0) client.out.erase(0, static_cast<std::size_t>(sent));
    if (client.out.empty()) return false;
    epoll_event event = eventOf(client.socket.get(), EPOLLOUT);
    return ::epoll_ctl(poll_.get(), EPOLL_CTL_MOD, event.data.fd, &event) == 0;
}

// All that the kernel has queued is taken in first: what was complete before the question is known.
std::optional<TreeChanges> FsCacheWatch::Inside::answer(const WatchQuestion& question) {
    lookAtMounts();
    drain();
    const WatchedTree* const tree = treeOf(question.path);
    if (question.table != tables_.directories || !tree || !tree->current) return std::nullopt;
    if (watchPlaceOf(tree->path()) != tree->place || tree->place->mount != question.place.mount ||
        watchPlaceOf(question.path.c_str()) != question.place)
        return std::nullopt;
    ++report_.answers;
    return changesOf(*tree, changes_, question.path);
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
