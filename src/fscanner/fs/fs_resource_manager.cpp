#include "fscanner/fs/fs_resource_manager.h"

#include <mutex>
#include <new>
#include <utility>

namespace fscanner {

namespace {

// Serializes changes of the list. An invocation takes no lock: a signal handler may call it
// while this thread holds the lock.
constinit std::mutex changes;
constinit std::atomic<int> invocations = 0;

}  // namespace

// The links are atomic so that the compiler keeps the order of the stores. A signal handler on
// the same thread then sees each step either done or not begun.
struct FsResourceManager::Registration {
    Handler handler;
    void* context;
    std::atomic<Registration*> next;
    Registration* nextRetired = nullptr;
};

struct FsResourceManager::ExitCleaner {
    FsResourceManager& manager;
    ~ExitCleaner() { manager.clear(); }
};

// The registry itself has no destructor. A static object of the host may own a result set and
// be destroyed later; its removal then finds no registration, which is harmless.
FsResourceManager* FsResourceManager::getInstance() {
    static constinit FsResourceManager instance;
    static const ExitCleaner cleaner{instance};
    return &instance;
}

void FsResourceManager::addCleanupHandler(Handler handler, void* context) {
    if (handler == nullptr) return;
    const std::lock_guard lock(changes);
    auto* added = new (std::nothrow) Registration{handler, context, head_.load()};
    if (added != nullptr) head_ = added;
}

void FsResourceManager::removeCleanupHandler(Handler handler, void* context) {
    const std::lock_guard lock(changes);
    std::atomic<Registration*>* link = &head_;
    for (Registration* at = link->load(); at != nullptr; at = link->load()) {
        if (at->handler == handler && at->context == context) {
            *link = at->next.load();
            at->nextRetired = std::exchange(retired_, at);
            if (!isInvoking()) freeRetired();
            return;
        }
        link = &at->next;
    }
}

void FsResourceManager::invokeCleanupHandlers(int code) {
    ++invocations;
    for (Registration* at = head_; at != nullptr; at = at->next) at->handler(code, at->context);
    --invocations;
}

bool FsResourceManager::isInvoking() {
    return invocations != 0;
}

void FsResourceManager::freeRetired() {
    while (retired_ != nullptr) delete std::exchange(retired_, retired_->nextRetired);
}

void FsResourceManager::clear() {
    freeRetired();
    Registration* at = head_.exchange(nullptr);
    while (at != nullptr) {
        Registration* next = at->next;
        delete at;
        at = next;
    }
}

}  // namespace fscanner
