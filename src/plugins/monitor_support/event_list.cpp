#include "monitor_support/event_list.h"

#include <sys/inotify.h>

#include <list>
#include <new>
#include <utility>

#include "fscanner/fs/fs_events.h"
#include "fscanner/fs/fs_text.h"

namespace fscanner::monitor {

static_assert(kWatchedChanges == (IN_MODIFY | IN_ATTRIB | IN_CLOSE_WRITE | IN_MOVED_FROM |
                                  IN_MOVED_TO | IN_CREATE | IN_DELETE) &&
              kOnDirectory == IN_ISDIR);

unsigned actionOf(std::uint32_t mask) {
    static constexpr std::pair<std::uint32_t, unsigned> kActions[] = {
        {IN_CREATE, FS_EVENT_CREATED},        {IN_DELETE, FS_EVENT_DELETED},
        {IN_MOVED_FROM, FS_EVENT_MOVED_FROM}, {IN_MOVED_TO, FS_EVENT_MOVED_TO},
        {IN_MODIFY, FS_EVENT_WRITTEN},        {IN_CLOSE_WRITE, FS_EVENT_WRITTEN},
        {IN_ATTRIB, FS_EVENT_ATTRIBUTES},     {IN_ISDIR, FS_EVENT_DIRECTORY}};
    unsigned action = 0;
    for (const auto& [bit, meaning] : kActions)
        if ((mask & bit) != 0) action |= meaning;
    return action;
}

void EventList::add(std::string_view path, unsigned action) {
    std::size_t& last = recent_[std::hash<std::string_view>()(path) % kRecent];
    if (last < events_.size() && events_[last].path == path) {
        events_[last].action |= action;
        return;
    }
    last = events_.size();
    events_.push_back({std::string(path), action});
}

int EventList::sendTo(FS_Queue& queue) const {
    std::list<FS_Event> events;
    std::wstring path;
    for (const Event& event : events_) {
        if (!fsToWide(event.path.c_str(), path)) throw std::bad_alloc();
        if (!events.emplace_back(path.c_str(), event.action).isValid()) throw std::bad_alloc();
    }
    queue.sendAll(std::move(events));
    return static_cast<int>(events_.size());
}

}  // namespace fscanner::monitor
