#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "fscanner/engine/cache_watch.h"
#include "fscanner/fs/fs_query.h"

namespace fscanner {

/// A watch with a thread that is its loop.
class RunningWatch {
public:
    RunningWatch(const std::wstring& cache, const std::wstring& tree, FsMonitor& monitor)
        : RunningWatch(cache, std::vector{tree}, monitor) {}
    RunningWatch(const std::wstring& cache, const std::vector<std::wstring>& trees,
                 FsMonitor& monitor)
        : watch_(settingsOf(cache), monitor) {
        for (const std::wstring& tree : trees) query_.addIncludePath((L"*:" + tree).c_str(), true);
        std::wstring problem;
        status = watch_.begin(query_, problem);
        if (status == 0) thread_ = std::thread([this] { run(); });
    }
    RunningWatch(const RunningWatch&) = delete;
    RunningWatch& operator=(const RunningWatch&) = delete;
    ~RunningWatch() {
        const std::uint64_t one = 1;
        EXPECT_EQ(::write(stop_, &one, sizeof one), std::ssize(std::array<char, sizeof one>()));
        if (thread_.joinable()) thread_.join();
        ::close(stop_);
    }

    FsWatchReport report() const {
        const std::lock_guard guard(guard_);
        return watch_.report();
    }
    /// Until this is true of a report. False if that takes far too long.
    template <class Condition>
    bool waitFor(Condition condition) const {
        for (int i = 0; i < 6000; ++i) {
            if (condition(report())) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return false;
    }
    bool waitUntilCurrent() const {
        return waitFor([](const FsWatchReport& one) { return one.current == one.trees; });
    }
    /// While this lives, the watch does nothing, as if it were stopped.
    std::unique_lock<std::mutex> pause() const { return std::unique_lock(guard_); }

    int status = 0;

private:
    static FsCacheSettings settingsOf(const std::wstring& cache) {
        FsCacheSettings settings;
        settings.directory = cache;
        return settings;
    }
    void run() {
        for (;;) {
            std::array<pollfd, 2> polls{{{watch_.descriptor(), POLLIN, 0}, {stop_, POLLIN, 0}}};
            ::poll(polls.data(), polls.size(), -1);
            if (polls[1].revents != 0) return;
            const std::lock_guard guard(guard_);
            EXPECT_EQ(watch_.step(), 0);
        }
    }

    FsQuery query_;
    FsCacheWatch watch_;
    mutable std::mutex guard_;
    int stop_ = ::eventfd(0, EFD_CLOEXEC);
    std::thread thread_;
};

}  // namespace fscanner
