#include "fscanner/fs/fs_resource_manager.h"

#include <new>

namespace fscanner {

// The links are atomic for the compiler's sake: a signal handler on the same
// thread must find each step done or not begun.
struct FsResourceManager::Registration {
    Handler handler;
    void* context;
    std::atomic<Registration*> next;
};

struct FsResourceManager::ExitCleaner {
    FsResourceManager& manager;
    ~ExitCleaner() { manager.clear(); }
};

// The registry itself has no destructor: a static object of the host that owns
// a result set may die later, and then removes a pair that is already forgotten.
FsResourceManager* FsResourceManager::getInstance() {
    static constinit FsResourceManager instance;
    static const ExitCleaner cleaner{instance};
    return &instance;
}

void FsResourceManager::addCleanupHandler(Handler handler, void* context) {
    if (handler == nullptr) return;
    auto* added = new (std::nothrow) Registration{handler, context, head_.load()};
    if (added != nullptr) head_ = added;
}

void FsResourceManager::removeCleanupHandler(Handler handler, void* context) {
    std::atomic<Registration*>* link = &head_;
    for (Registration* at = link->load(); at != nullptr; at = link->load()) {
        if (at->handler == handler && at->context == context) {
            *link = at->next.load();
            delete at;
            return;
        }
        link = &at->next;
    }
}

void FsResourceManager::invokeCleanupHandlers(int code) {
    Registration* next = nullptr;
    for (Registration* at = head_; at != nullptr; at = next) {
        next = at->next;  // before the call: the handler may remove itself
        at->handler(code, at->context);
    }
}

void FsResourceManager::clear() {
    Registration* at = head_.exchange(nullptr);
    while (at != nullptr) {
        Registration* next = at->next;
        delete at;
        at = next;
    }
}

}  // namespace fscanner
