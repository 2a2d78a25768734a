#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "fscanner/fs/fs_workers.h"

namespace fscan {

/// While it lives, searches use at most so many threads, the caller's included. They begin when
/// there is something to do for them. Without threads to be had, the caller's does all.
class WorkerThreads : public fscanner::FsWorkers {
public:
    explicit WorkerThreads(unsigned threads);
    /// Waits for the tasks that run, and forgets the others.
    ~WorkerThreads() override;
    WorkerThreads(const WorkerThreads&) = delete;
    WorkerThreads& operator=(const WorkerThreads&) = delete;

    unsigned atOnce() const override { return most_; }
    bool submit(std::function<void()> task) override;

private:
    void work();

    const unsigned most_;
    fscanner::FsWorkers* const previous_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> tasks_;
    unsigned idle_ = 0;
    bool ends_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace fscan
