#pragma once

#include <sys/stat.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/fs/fs_workers.h"
#include "fscanner/platform/directory.h"

namespace fscanner {

/// A directory that a cached tree has.
struct KnownDirectory {
    unsigned record = 0;
    unsigned id = 0;
    unsigned parent = 0;
    std::string name;
    bool covered = false;   ///< another drive, which is no part of the tree, is there
    bool examined = false;  ///< the rest is known
    int error = 0;          ///< of `Directory::statEntry`
    struct stat info {};    ///< where that is 0
};

/// Known directories, some of which a task may examine.
class ExamineBatch {
public:
    static constexpr std::size_t kMost = 256;

    std::vector<KnownDirectory> directories;

    bool isFull() const { return directories.size() >= kMost; }
    /// The last directory may be examined. The path of the one that holds it is relative to the
    /// root, and empty for the root itself.
    void allowLast(std::string_view parentPath);

private:
    friend class ExamineAhead;
    using Duration = std::chrono::steady_clock::duration;
    enum class State { waiting, running, done };
    /// A directory that holds some of them.
    struct Place {
        unsigned id;
        std::string path;
        std::vector<std::size_t> directories;
    };
    void run(const Directory& root);
    void examine(const Directory& root);
    void cancel();
    void await(std::unique_lock<std::mutex>& lock);

    std::mutex mutex_;
    std::condition_variable done_;
    State state_ = State::waiting;
    std::vector<Place> places_;
    Duration took_{};
};

/// Batches in order. Those that wait for their turn are examined by the host's workers, if it has
/// set any; without, nothing is examined here.
class ExamineAhead {
public:
    /// `root` stays open while this lives.
    explicit ExamineAhead(const Directory& root) : root_(root), workers_(scanWorkers()) {}
    /// Waits for the tasks that have begun. Others will find nothing to do.
    ~ExamineAhead();
    ExamineAhead(const ExamineAhead&) = delete;
    ExamineAhead& operator=(const ExamineAhead&) = delete;

    /// Whether another batch should be added before one is taken.
    bool hasRoom() const;
    bool empty() const { return batches_.empty(); }
    void add(std::shared_ptr<ExamineBatch> batch);
    /// The first batch, which no task uses any more.
    std::shared_ptr<ExamineBatch> take();

private:
    bool isSlow() const;

    const Directory& root_;
    FsWorkers* const workers_;
    std::deque<std::shared_ptr<ExamineBatch>> batches_;
    std::size_t taken_ = 0;  // directories
    ExamineBatch::Duration spent_{};
};

}  // namespace fscanner
