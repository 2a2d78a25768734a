#include "fscanner/engine/examine_ahead.h"

#include <algorithm>
#include <new>
#include <thread>
#include <utility>

namespace fscanner {

namespace {

// A directory whose inode is in memory is examined in less time.
constexpr std::chrono::microseconds kSlow{20};

}  // namespace

void ExamineBatch::allowLast(std::string_view parentPath) {
    const KnownDirectory& last = directories.back();
    const auto same = [&last](const Place& place) { return place.id == last.parent; };
    auto place = std::find_if(places_.rbegin(), places_.rend(), same);
    if (place == places_.rend()) {
        places_.push_back({last.parent, std::string(parentPath), {}});
        place = places_.rbegin();
    }
    place->directories.push_back(directories.size() - 1);
}

// Unless somebody else does.
void ExamineBatch::run(const Directory& root) {
    {
        const std::lock_guard lock(mutex_);
        if (state_ != State::waiting) return;
        state_ = State::running;
    }
    const auto began = std::chrono::steady_clock::now();
    try {
        examine(root);
    } catch (const std::bad_alloc&) {
        // What is not examined here, the caller examines.
    }
    const std::lock_guard lock(mutex_);
    took_ = std::chrono::steady_clock::now() - began;
    state_ = State::done;
    done_.notify_all();
}

void ExamineBatch::examine(const Directory& root) {
    Directory opened;
    for (const Place& place : places_) {
        const bool below = !place.path.empty();
        if (below && opened.openBelow(root, place.path.c_str(), DirectoryUse::reach) != 0) continue;
        const Directory& parent = below ? opened : root;
        for (const std::size_t index : place.directories) {
            KnownDirectory& directory = directories[index];
            directory.error = parent.statEntry(directory.name.c_str(), directory.info);
            directory.examined = true;
        }
    }
}

void ExamineBatch::await(std::unique_lock<std::mutex>& lock) {
    done_.wait(lock, [this] { return state_ != State::running; });
}

void ExamineBatch::cancel() {
    std::unique_lock lock(mutex_);
    await(lock);
    state_ = State::done;
}

ExamineAhead::~ExamineAhead() {
    for (const auto& batch : batches_) batch->cancel();
}

bool ExamineAhead::isSlow() const {
    return spent_ > kSlow * taken_;
}

// One task for each other core, and all where the disk is slow.
bool ExamineAhead::hasRoom() const {
    if (!workers_) return batches_.empty();
    const unsigned most = workers_->atOnce();
    const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
    return batches_.size() <= (isSlow() ? most : std::min(most, cores - 1));
}

void ExamineAhead::add(std::shared_ptr<ExamineBatch> batch) {
    batches_.push_back(std::move(batch));
    if (!workers_) return;
    // The next one to be taken needs no thread.
    if (batches_.size() > 1)
        workers_->submit([batch = batches_.back(), &root = root_] { batch->run(root); });
}

std::shared_ptr<ExamineBatch> ExamineAhead::take() {
    std::shared_ptr<ExamineBatch> batch = std::move(batches_.front());
    batches_.pop_front();
    if (!workers_) return batch;
    batch->run(root_);
    std::unique_lock lock(batch->mutex_);
    batch->await(lock);
    taken_ += batch->directories.size();
    spent_ += batch->took_;
    return batch;
}

}  // namespace fscanner
