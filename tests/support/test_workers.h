#pragma once

#include <functional>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "fscanner/fs/fs_workers.h"

namespace fscanner {

/// While it lives, scans have the help of so many threads. Each task gets a thread of its own.
class TestWorkers : public FsWorkers {
public:
    explicit TestWorkers(unsigned threads) : threads_(threads), previous_(fsSetWorkers(this)) {}
    ~TestWorkers() override {
        fsSetWorkers(previous_);
        for (std::thread& thread : running_) thread.join();
    }
    TestWorkers(const TestWorkers&) = delete;
    TestWorkers& operator=(const TestWorkers&) = delete;

    unsigned atOnce() const override { return threads_; }
    bool submit(std::function<void()> task) override {
        const std::lock_guard lock(mutex_);
        ++tasks_;
        running_.emplace_back(std::move(task));
        return true;
    }
    /// How many were submitted.
    unsigned tasks() const {
        const std::lock_guard lock(mutex_);
        return tasks_;
    }

private:
    const unsigned threads_;
    FsWorkers* const previous_;
    mutable std::mutex mutex_;
    std::vector<std::thread> running_;
    unsigned tasks_ = 0;
};

}  // namespace fscanner
