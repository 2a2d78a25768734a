#include "fscanner/engine/read_ahead.h"

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"

// The directories that are known and not visited form a list in the order of the walk. One that
// is being read keeps its place, and is then replaced by those in it. So the first one of the list
// that nobody has begun is always the next that the walk will need.
//
// A directory is opened relative to the one that holds it, whose descriptor stays open until none
// in it is waiting or being read.

namespace fscanner {

namespace {

// Of what was read and not visited yet.
constexpr std::size_t kMostBytes = std::size_t{16} << 20;
constexpr std::size_t kMostOpen = 1024;
// At most one in so many of the descriptors that the process may have.
constexpr std::size_t kShareOfDescriptors = 4;
// So many subdirectories of one directory are planned at once.
constexpr std::size_t kMostChildren = 64;
constexpr std::size_t kMostNodes = 16384;
// So many files of one directory are examined ahead.
constexpr std::size_t kMostFacts = 1024;
constexpr std::size_t kReadBuffer = 64 * 1024;
// A directory in memory is read in less time.
constexpr std::chrono::microseconds kSlow{100};
// The disk is what a walk waits for if slow readings take so much time, and such a share of all.
constexpr std::chrono::milliseconds kSlowTime{10};
constexpr unsigned kSlowShare = 3;
// More memory than this is not kept for the next directories.
constexpr std::size_t kMostKept = std::size_t{1} << 20;

std::size_t mostOpen() {
    struct rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return 0;
    return std::min<std::size_t>(kMostOpen, limit.rlim_cur / kShareOfDescriptors);
}

// What a thread needs to read directories.
struct Reader {
    StampTaker taker;
    std::vector<char> buffer = std::vector<char>(kReadBuffer);
};

std::size_t bytesOf(const ReadDirectory& read) {
    return read.entries.bytes() + read.facts.capacity() * sizeof(EntryFacts);
}

void examineFiles(ReadDirectory& read) {
    std::size_t place = read.entries.end();
    DirectoryEntries::Entry entry;
    while (read.facts.size() < kMostFacts && read.entries.before(place, entry)) {
        if (entry.type == EntryType::directory) continue;
        EntryFacts& facts = read.facts.emplace_back();
        facts.error = read.directory.statEntry(entry.name.data(), facts.info);
    }
}

}  // namespace

struct ReadAhead::Node {
    enum class State { waiting, running, done, refused };
    State state = State::waiting;
    int parent = -1;  // a descriptor
    std::string name;
    Branch branch;  // to be moved to the walk
    std::size_t bytes = 0;
    Node* previous = this;
    Node* next = this;
};

class ReadAhead::Shared {
public:
    using Lock = std::unique_lock<std::mutex>;

    Shared(AheadWork work, const AheadRules& rules) : work_(work), rules_(rules) {}

    void work();
    void stop();
    bool begin(Branch& branch);
    Node* find(Branch& branch, std::string_view name);
    bool take(Node& node, Branch& branch);
    void drop(Node& node);
    void close(Branch& branch);
    void end(Branch& branch);
    bool giveBack();
    /// Whether the walk mostly waits for the disk.
    bool isSlow() const { return slow_ > kSlowTime && slow_ * kSlowShare > Clock::now() - began_; }

private:
    using Clock = std::chrono::steady_clock;
    using State = Node::State;

    bool hasRoom() const { return open_ < mostOpen_ && bytes_ < kMostBytes; }
    Node* nextWaiting() const;
    Node* newNode(std::string_view name, const Branch& parent);
    void recycle(Node& node);
    static void link(Node& node, Node& next);
    static void unlink(Node& node);
    void plan(Branch& branch, Node& next);
    void run(Lock& lock, Node& node, Reader& reader);
    bool read(Node& node, Reader& reader) const;
    template <class Work>
    void timed(Work work);
    void await(Lock& lock, const Node& node);
    void clear(Lock& lock, Node& node);
    void release(Lock& lock, Node& node);
    void wake();

    const AheadWork work_;
    const AheadRules& rules_;
    std::mutex mutex_;
    std::condition_variable more_;  // for workers: there is something to do
    std::condition_variable done_;  // for the walk: something was done
    Node list_;                     // no directory: the list begins behind it, and ends before it
    std::vector<std::unique_ptr<Node>> nodes_;
    std::vector<Node*> spare_;
    std::size_t mostOpen_ = mostOpen();
    std::size_t open_ = 0;   // nodes that are running or done
    std::size_t bytes_ = 0;  // of those that are done
    std::size_t kept_ = 0;   // by spare nodes
    std::size_t running_ = 0;
    std::size_t idle_ = 0;    // workers that wait
    std::size_t active_ = 0;  // workers
    bool stopped_ = false;
    // Of the walk's thread.
    Reader own_;
    const Clock::time_point began_ = Clock::now();
    Clock::duration slow_{};  // in which it read or waited for long
};

ReadAhead::Node* ReadAhead::Shared::nextWaiting() const {
    Node* node = list_.next;
    while (node != &list_ && node->state != State::waiting) node = node->next;
    return node == &list_ ? nullptr : node;
}

// Null where there are too many.
ReadAhead::Node* ReadAhead::Shared::newNode(std::string_view name, const Branch& parent) {
    if (spare_.empty()) {
        if (nodes_.size() == kMostNodes) return nullptr;
        spare_.reserve(nodes_.size() + 1);
        nodes_.push_back(std::make_unique<Node>());
        spare_.push_back(nodes_.back().get());
    }
    Node* const node = spare_.back();
    node->parent = parent.read.directory.descriptor();
    node->name = name;
    node->branch.depth = parent.depth + 1;
    if (rules_.needsPaths()) node->branch.path = parent.path + toWide(name);
    spare_.pop_back();
    kept_ -= std::exchange(node->bytes, 0);
    return node;
}

void ReadAhead::Shared::recycle(Node& node) {
    node.bytes = bytesOf(node.branch.read) + node.branch.path.capacity() * sizeof(wchar_t);
    if (kept_ + node.bytes > kMostKept) {
        (void)std::exchange(node.branch, Branch());  // an assignment would keep the path's memory
        node.bytes = 0;
    }
    kept_ += node.bytes;
    node.state = State::waiting;
    spare_.push_back(&node);
}

void ReadAhead::Shared::link(Node& node, Node& next) {
    node.next = &next;
    node.previous = std::exchange(next.previous, &node);
    node.previous->next = &node;
}

void ReadAhead::Shared::unlink(Node& node) {
    node.previous->next = node.next;
    node.next->previous = node.previous;
}

// Makes nodes of the next directories in this one, before `next` in the list. Without memory there
// are fewer.
void ReadAhead::Shared::plan(Branch& branch, Node& next) try {
    if (branch.depth >= work_.deepest || stopped_) return;
    std::size_t place = std::min(branch.unplanned, branch.read.entries.end());
    DirectoryEntries::Entry entry;
    std::vector<Node*>& children = branch.children;
    while (children.size() < kMostChildren) {
        branch.unplanned = place;
        if (!branch.read.entries.before(place, entry)) break;
        if (entry.type != EntryType::directory) continue;
        children.reserve(kMostChildren);
        Node* const node = newNode(entry.name, branch);
        if (!node) break;
        link(*node, next);
        children.push_back(node);
    }
    std::reverse(children.begin(), children.end());
} catch (const std::bad_alloc&) {
    std::reverse(branch.children.begin(), branch.children.end());
}

// Not while almost as much as possible was read: workers would wake for each directory.
void ReadAhead::Shared::wake() {
    if (idle_ > 0 && open_ <= mostOpen_ / 2 && bytes_ <= kMostBytes / 2) more_.notify_one();
}

void ReadAhead::Shared::work() try {
    Reader reader;
    Lock lock(mutex_);
    if (stopped_) return;
    ++active_;
    while (!stopped_) {
        Node* const node = hasRoom() ? nextWaiting() : nullptr;
        if (node) {
            run(lock, *node, reader);
        } else {
            ++idle_;
            more_.wait(lock);
            --idle_;
        }
    }
    --active_;
    done_.notify_all();
} catch (const std::bad_alloc&) {
    // Without memory for a reader, there is no help.
}

void ReadAhead::Shared::stop() {
    Lock lock(mutex_);
    stopped_ = true;
    more_.notify_all();
    done_.wait(lock, [this] { return active_ == 0; });
}

// Reads the directory of a waiting node.
void ReadAhead::Shared::run(Lock& lock, Node& node, Reader& reader) {
    node.state = State::running;
    ++open_;
    ++running_;
    lock.unlock();
    const bool good = read(node, reader);
    lock.lock();
    --running_;
    Node& next = *node.next;
    unlink(node);
    node.state = good ? State::done : State::refused;
    if (good) {
        node.bytes = bytesOf(node.branch.read);
        bytes_ += node.bytes;
        node.branch.unplanned = node.branch.read.entries.end();
        plan(node.branch, next);
    } else {
        --open_;
    }
    done_.notify_all();
    wake();
}

// False where that fails, for whatever reason: the walk will see it, and say so.
bool ReadAhead::Shared::read(Node& node, Reader& reader) const {
    ReadDirectory& read = node.branch.read;
    Directory& directory = read.directory;
    read.facts.clear();
    read.factsTaken = 0;
    try {
        if (rules_.needsPaths() && !rules_.mayRead(node.branch.path)) return false;
        if (directory.openChild(node.parent, node.name.c_str()) != 0) return false;
        if (work_.stamps) read.stamp = reader.taker.take(directory);
        if (directory.read(read.entries, reader.buffer) == 0) {
            if (work_.facts) examineFiles(read);
            if (rules_.needsPaths()) endWithSeparator(node.branch.path);
            return true;
        }
    } catch (const std::bad_alloc&) {
        // As for other failures.
    }
    directory.close();
    return false;
}

bool ReadAhead::Shared::begin(Branch& branch) {
    const Lock lock(mutex_);
    branch.unplanned = branch.read.entries.end();
    plan(branch, *list_.next);
    if (branch.children.empty()) return false;
    wake();
    return true;
}

ReadAhead::Node* ReadAhead::Shared::find(Branch& branch, std::string_view name) {
    if (branch.children.empty()) {
        if (branch.unplanned == 0 || !branch.read.directory.isOpen()) return nullptr;
        const Lock lock(mutex_);
        plan(branch, *list_.next);
        wake();
        return nullptr;
    }
    Node* const node = branch.children.back();
    if (node->name != name) return nullptr;
    branch.children.pop_back();
    return node;
}

/// What the walk's thread does while it needs a directory.
template <class Work>
void ReadAhead::Shared::timed(Work work) {
    const Clock::time_point before = Clock::now();
    work();
    const Clock::duration took = Clock::now() - before;
    if (took > kSlow) slow_ += took;
}

// While another thread reads the directory, the walk's thread reads the next one.
void ReadAhead::Shared::await(Lock& lock, const Node& node) {
    while (node.state == State::running) {
        Node* const other = hasRoom() ? nextWaiting() : nullptr;
        timed([&] { other ? run(lock, *other, own_) : done_.wait(lock); });
    }
}

bool ReadAhead::Shared::take(Node& node, Branch& branch) {
    Lock lock(mutex_);
    if (node.state == State::waiting) timed([&] { run(lock, node, own_); });
    await(lock, node);
    const bool done = node.state == State::done;
    if (done) {
        std::swap(branch, node.branch);
        --open_;
        bytes_ -= node.bytes;
        wake();
    }
    recycle(node);
    return done;
}

// Forgets what was read of the directory.
void ReadAhead::Shared::clear(Lock& lock, Node& node) {
    await(lock, node);
    if (node.state == State::waiting) unlink(node);
    if (node.state == State::done) {
        for (Node* const child : std::exchange(node.branch.children, {})) release(lock, *child);
        node.branch.read.directory.close();
        --open_;
        bytes_ -= node.bytes;
    }
    node.state = State::refused;
}

void ReadAhead::Shared::release(Lock& lock, Node& node) {
    clear(lock, node);
    recycle(node);
}

void ReadAhead::Shared::drop(Node& node) {
    Lock lock(mutex_);
    release(lock, node);
    wake();
}

void ReadAhead::Shared::close(Branch& branch) {
    if (!branch.children.empty()) {
        Lock lock(mutex_);
        for (Node* const child : branch.children)
            if (child->state != State::done) clear(lock, *child);
    }
    branch.read.directory.close();
}

void ReadAhead::Shared::end(Branch& branch) {
    if (!branch.children.empty()) {
        Lock lock(mutex_);
        for (Node* const child : std::exchange(branch.children, {})) release(lock, *child);
    }
    branch.unplanned = 0;
    branch.read.directory.close();
}

// What was read is read again by the walk when it comes there. From now on less is read ahead.
bool ReadAhead::Shared::giveBack() {
    Lock lock(mutex_);
    const std::size_t later = std::exchange(mostOpen_, 0) / 2;
    done_.wait(lock, [this] { return running_ == 0; });
    const bool had = open_ > 0;
    for (const auto& node : nodes_)
        if (node->state == State::done) clear(lock, *node);
    mostOpen_ = later;
    return had;
}

// ---- The walk's face --------------------------------------------------------

ReadAhead::ReadAhead(FsWorkers& workers, AheadWork work, const AheadRules& rules)
    : shared_(std::make_shared<Shared>(work, rules)), workers_(workers) {}

ReadAhead::~ReadAhead() {
    shared_->stop();
}

// Tasks begin when there is something to do for them: one for each other core, and all where the
// disk is slow.
void ReadAhead::begin(Branch& branch) {
    if (shared_->begin(branch)) submit(std::max(1U, std::thread::hardware_concurrency()) - 1);
}

void ReadAhead::submit(unsigned tasks) {
    tasks = std::min(tasks, workers_.atOnce());
    for (; submitted_ < tasks; ++submitted_)
        if (!workers_.submit([shared = shared_] { shared->work(); })) break;
}

ReadAhead::Node* ReadAhead::find(Branch& branch, std::string_view name) {
    return shared_->find(branch, name);
}

bool ReadAhead::take(Node& node, Branch& branch) {
    const bool taken = shared_->take(node, branch);
    if (submitted_ < workers_.atOnce() && shared_->isSlow()) submit(workers_.atOnce());
    return taken;
}

void ReadAhead::drop(Node& node) {
    shared_->drop(node);
}

void ReadAhead::close(Branch& branch) {
    shared_->close(branch);
}

void ReadAhead::end(Branch& branch) {
    shared_->end(branch);
}

bool ReadAhead::giveBack() {
    return shared_->giveBack();
}

}  // namespace fscanner
