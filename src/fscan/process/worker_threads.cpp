#include "fscan/process/worker_threads.h"

#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <system_error>
#include <utility>

namespace fscan {

namespace {

constexpr rlim_t kDescriptors = 4096;

/// For directories that are read ahead: a scan looks at the limit when it begins. Few systems allow
/// many unless a program asks for it.
void allowDescriptors() {
    struct rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kDescriptors) return;
    limit.rlim_cur = std::min(kDescriptors, limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// While it lives, signals do not reach this thread, nor those that it starts.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

}  // namespace

WorkerThreads::WorkerThreads(unsigned threads)
    : most_(threads - 1), previous_(fscanner::fsSetWorkers(most_ > 0 ? this : nullptr)) {
    if (most_ > 0) allowDescriptors();
}

WorkerThreads::~WorkerThreads() {
    fscanner::fsSetWorkers(previous_);
    {
        const std::lock_guard lock(mutex_);
        ends_ = true;
        tasks_.clear();
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
}

bool WorkerThreads::submit(std::function<void()> task) {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    if (idle_ >= tasks_.size() || threads_.size() == most_) {
        changed_.notify_one();
        return true;
    }
    try {
        const SignalsBlocked blocked;
        threads_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        if (threads_.empty()) tasks_.clear();
        return !threads_.empty();
    }
    return true;
}

void WorkerThreads::work() {
    std::unique_lock lock(mutex_);
    while (!ends_) {
        if (tasks_.empty()) {
            ++idle_;
            changed_.wait(lock);
            --idle_;
            continue;
        }
        const std::function<void()> task = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

}  // namespace fscan
