#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "monitor_support/descriptor.h"
#include "monitor_support/event_list.h"
#include "monitor_support/tree.h"

struct inotify_event;

namespace fscanner::monitor {

/// One tree of directories, each with a watch of an inotify instance that belongs to the tree.
///
/// A watch follows its directory wherever that is moved; the kernel knows it by a number, and tells
/// the same number when the directory is watched again. The tree knows the parent and the name of
/// each, which it corrects while it reads events. They say what was true once. So whenever a
/// directory is not found where events said that it is, the whole tree is walked again.
class WatchedTree {
public:
    /// Watches all directories. Throws `std::system_error`; with ENOSPC, there are too many.
    explicit WatchedTree(const Tree& tree);

    /// Adds what is queued to `events`. False, with an event that says so, when the tree is not
    /// watched any more: the object is of no use then.
    bool take(EventList& events);

    const std::string& path() const { return path_; }
    int descriptor() const { return instance_.get(); }

private:
    // The number of a watch stands for its directory. The children of a directory are a list in
    // both directions.
    using Number = int;
    static constexpr Number kNone = -1;
    struct Directory {
        Number parent = kNone;
        Number firstChild = kNone;
        Number next = kNone;
        Number previous = kNone;
        unsigned found = 0;   // the last walk that found it
        unsigned listed = 0;  // the last walk that listed it; 0: none
        std::string name;
    };
    enum class Found { known, added, absent };

    void read(EventList& events);
    void tell(const inotify_event& event, EventList& events);
    void follow(const inotify_event& event, EventList& events);
    void look(Number parent, const char* name, EventList* news);
    void checkPlace(Number directory);

    void walkAgain(EventList& events);
    void walkFrom(Number start, EventList* news);
    void list(Number directory, std::vector<Number>& unlisted, EventList* news);
    Descriptor open(Number directory, int flags);
    Found add(Number parent, const Descriptor& directory, const char* name, Number& number);
    void miss(const std::string& path, int error);
    void dropUnfound();

    std::string pathOf(Number directory) const;
    const std::string& recentPathOf(Number directory);
    bool isBelow(Number directory, Number above) const;
    void place(Number directory, Number parent, std::string_view name);
    void detach(const Directory& directory);
    void drop(Number directory);
    void forget(Number directory);

    std::string path_;
    MountId mount_;
    Descriptor instance_;
    Number root_ = kNone;
    std::unordered_map<Number, Directory> directories_;
    unsigned walk_ = 1;
    bool ended_ = false;
    bool walkIsDue_ = false;
    bool hasUnread_ = false;  // a directory could not be read when it was last looked at
    std::vector<std::string> unwatched_;  // directories that may not be read, to be told of
    Number recent_ = kNone;               // whose path is in `recentPath_`
    std::string recentPath_;
};

}  // namespace fscanner::monitor
