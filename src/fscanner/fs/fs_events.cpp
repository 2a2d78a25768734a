#include "fscanner/fs/fs_events.h"

#include <cwchar>
#include <new>
#include <utility>

#include "fscanner/common/utf8.h"
#include "fscanner/platform/abstract_sync.h"
#include "fscanner/platform/sysfactory.h"

namespace fscanner {

FS_Event::FS_Event(const wchar_t* entry, unsigned action) {
    if (!entry) return;
    const std::size_t room = std::wcslen(entry) + 1;
    entry_.reset(new (std::nothrow) wchar_t[room]);
    if (!entry_) return;
    std::wmemcpy(entry_.get(), entry, room);
    action_ = action;
}

FS_Event::FS_Event(const FS_Event& other) : FS_Event(other.getEntry(), other.action_) {}

FS_Event& FS_Event::operator=(const FS_Event& other) {
    if (this == &other) return *this;
    FS_Event copy(other);
    entry_ = std::move(copy.entry_);
    action_ = copy.action_;
    return *this;
}

void FS_Event::setInvalid() {
    entry_.reset();
    action_ = kInvalidAction;
}

std::map<std::string, FS_Queue*> FS_Queue::queues;

FS_Queue::FS_Queue(const std::string& name)
    : semaphore_(SysFactory::createSemaphore(toWide(name + "Sem").c_str())),
      lock_(SysFactory::createMutex(toWide(name + "Mtx").c_str())) {
    queues.emplace(name, this);
}

FS_Queue::~FS_Queue() {
    std::erase_if(queues, [this](const auto& known) { return known.second == this; });
}

FS_Queue* FS_Queue::getInstance(const std::string& name) {
    const auto found = queues.find(name);
    return found != queues.end() ? found->second : nullptr;
}

int FS_Queue::sendQ(const FS_Event& event) {
    return send(event, End::back);
}

int FS_Queue::sendUrgentQ(const FS_Event& event) {
    return send(event, End::front);
}

int FS_Queue::send(const FS_Event& event, End end) {
    lock_->wait();
    {
        const std::lock_guard guard(listGuard_);
        events_.insert(end == End::front ? events_.begin() : events_.end(), event);
    }
    semaphore_->release();
    return lock_->release();
}

FS_Event FS_Queue::recvQ() {
    return receive(semaphore_->wait());
}

FS_Event FS_Queue::recvQ(long milliseconds) {
    return receive(semaphore_->wait(milliseconds));
}

FS_Event FS_Queue::receive(int semaphoreStatus) {
    if (semaphoreStatus != SYNC_SUCCESS) return fail(semaphoreStatus);
    if (const int status = lock_->wait()) return fail(status);
    // The lock between processes goes before the event does, on purpose; threads are
    // kept apart until both are done.
    const std::lock_guard guard(listGuard_);
    FS_Event event;
    if (!events_.empty()) event = events_.front();
    lock_->release();
    if (!events_.empty()) events_.pop_front();
    return event;
}

void FS_Queue::sendAll(std::list<FS_Event> events) {
    const std::size_t count = events.size();
    {
        const std::lock_guard guard(listGuard_);
        events_.splice(events_.end(), events);
    }
    for (std::size_t i = 0; i < count; ++i) semaphore_->release();
}

std::list<FS_Event> FS_Queue::takeAll() {
    std::list<FS_Event> taken;
    {
        const std::lock_guard guard(listGuard_);
        taken.swap(events_);
    }
    // There is a unit for each, unless another queue of the name took it.
    for (std::size_t i = 0; i < taken.size() && semaphore_->wait(0) == SYNC_SUCCESS; ++i) {
    }
    return taken;
}

FS_Event FS_Queue::fail(int status) {
    lastError_ = status == SYNC_TIMED_OUT ? QUEUE_TIMED_OUT : QUEUE_FAILED;
    return {};
}

}  // namespace fscanner
