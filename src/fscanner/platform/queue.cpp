#include "fscanner/platform/queue.h"

#include "fscanner/common/utf8.h"
#include "fscanner/platform/sysfactory.h"

namespace fscanner {

std::map<std::string, FS_Queue*> FS_Queue::queues;

FS_Queue::FS_Queue(const std::string& name)
    : semaphore_(SysFactory::createSemaphore(toWide(name + "Sem").c_str())),
      lock_(SysFactory::createMutex(toWide(name + "Mtx").c_str())) {
    queues.emplace(name, this);
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

FS_Event FS_Queue::fail(int status) {
    lastError_ = status == SYNC_TIMED_OUT ? QUEUE_TIMED_OUT : QUEUE_FAILED;
    return {};
}

}  // namespace fscanner
