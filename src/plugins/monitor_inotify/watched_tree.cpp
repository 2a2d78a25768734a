#include "monitor_inotify/watched_tree.h"

#include <dirent.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "fscanner/fs/fs_events.h"

namespace fscanner::monitor {

namespace {

constexpr std::uint32_t kWatch =
    kWatchedChanges | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_EXCL_UNLINK;

[[noreturn]] void fail(int error) {
    throw std::system_error(error, std::generic_category());
}

bool isAbsence(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ESTALE;
}

bool isDenial(int error) {
    return error == EACCES || error == EPERM;
}

struct CloseDirectory {
    void operator()(DIR* directory) const { ::closedir(directory); }
};
using DirectoryStream = std::unique_ptr<DIR, CloseDirectory>;

DirectoryStream stream(const Descriptor& directory) {
    const int copy = ::fcntl(directory.get(), F_DUPFD_CLOEXEC, 0);
    DirectoryStream opened(copy >= 0 ? ::fdopendir(copy) : nullptr);
    if (!opened) {
        const int error = errno;
        if (copy >= 0) ::close(copy);
        fail(error);
    }
    return opened;
}

// Calls `use` with the name of each entry that may be a directory.
template <class Use>
void eachSubdirectory(const Descriptor& directory, Use use) {
    const DirectoryStream entries = stream(directory);
    errno = 0;
    while (const dirent* entry = ::readdir(entries.get())) {
        const std::string_view name = entry->d_name;
        const bool mayBe = entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN;
        if (mayBe && name != "." && name != "..") use(entry->d_name);
        errno = 0;
    }
    if (errno != 0 && !isAbsence(errno)) fail(errno);
}

}  // namespace

WatchedTree::WatchedTree(const Tree& tree)
    : path_(tree.path), mount_(tree.mount), instance_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (!instance_) fail(errno);
    root_ = ::inotify_add_watch(instance_.get(), tree.directory.link().c_str(), kWatch);
    if (root_ < 0) fail(errno);
    directories_[root_].found = walk_;
    walkFrom(root_, nullptr);
}

// ---- Events ----

bool WatchedTree::take(EventList& events) {
    try {
        read(events);
        if (!ended_ && walkIsDue_) walkAgain(events);
        for (const std::string& path : std::exchange(unwatched_, {}))
            events.add(path, FS_EVENT_UNWATCHED | FS_EVENT_DIRECTORY);
    } catch (const std::exception&) {
        ended_ = true;  // A directory could not be watched, mostly because there are too many.
    }
    if (ended_) events.add(path_, FS_EVENT_UNWATCHED | FS_EVENT_DIRECTORY);
    return !ended_;
}

// Ends after what was queued when it began: others may go on to change files all the time.
void WatchedTree::read(EventList& events) {
    alignas(inotify_event) std::array<char, 65536> buffer;
    int queued = 0;
    if (::ioctl(instance_.get(), FIONREAD, &queued) != 0) fail(errno);
    for (ssize_t left = queued; left > 0 && !ended_;) {
        const ssize_t length = ::read(instance_.get(), buffer.data(), buffer.size());
        if (length < 0 && errno == EINTR) continue;
        if (length < 0 && errno != EAGAIN) fail(errno);
        if (length <= 0) return;
        left -= length;
        for (ssize_t at = 0; at < length && !ended_;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            tell(*event, events);
            at += static_cast<ssize_t>(sizeof *event + event->len);
        }
    }
}

// Events of directories that are not known any more are late: an event of where they were, or will
// be, told of them.
void WatchedTree::tell(const inotify_event& event, EventList& events) {
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
        events.add(path_, FS_EVENT_OVERFLOW);
        walkIsDue_ = true;
        return;
    }
    if (!directories_.contains(event.wd)) return;
    const bool left = (event.mask & (IN_IGNORED | IN_DELETE_SELF | IN_MOVE_SELF)) != 0;
    if ((event.mask & IN_UNMOUNT) != 0 || (left && event.wd == root_)) {
        ended_ = true;
        return;
    }
    if ((event.mask & IN_IGNORED) != 0) return forget(event.wd);
    if ((event.mask & IN_MOVE_SELF) != 0) return checkPlace(event.wd);
    if ((event.mask & IN_DELETE_SELF) != 0) return;
    const std::string& directory = recentPathOf(event.wd);
    events.add(event.len == 0 ? directory : joined(directory, event.name), actionOf(event.mask));
    if ((event.mask & IN_ISDIR) != 0) follow(event, events);
}

// The host looks at all of a directory that came. One that could not be read before may have
// directories that are no news to its parent: they are told of.
void WatchedTree::follow(const inotify_event& event, EventList& events) {
    if ((event.mask & (IN_CREATE | IN_MOVED_TO)) != 0)
        look(event.wd, event.name, nullptr);
    else if ((event.mask & IN_ATTRIB) != 0 && hasUnread_ && event.len != 0)
        look(event.wd, event.name, &events);
    else if ((event.mask & IN_ATTRIB) != 0 && hasUnread_ && event.wd == root_)
        walkIsDue_ = true;
}

// Watches an entry of `parent`, and all below it. A directory that is known keeps its watches where
// it goes, so that it need not be listed, unless there may be `news`, or directories below without
// one, whose paths are others now.
void WatchedTree::look(Number parent, const char* name, EventList* news) {
    const Descriptor above = open(parent, O_PATH);
    if (!above) return miss(joined(pathOf(parent), name), errno);
    Number number = kNone;
    const Found found = add(parent, above, name, number);
    if (found == Found::absent) return;
    if (found == Found::added && news != nullptr)
        news->add(pathOf(number), FS_EVENT_CREATED | FS_EVENT_DIRECTORY);
    if (news != nullptr || hasUnread_ || directories_.at(number).listed == 0)
        walkFrom(number, news);
}

// A directory was moved. If it went to a place in the tree, it was placed there, or an event that
// is to come tells of it: then it is watched again.
void WatchedTree::checkPlace(Number directory) {
    if (open(directory, O_PATH)) return;
    if (open(directories_.at(directory).parent, O_PATH))
        drop(directory);
    else
        walkIsDue_ = true;
}

// ---- Directories: their parents, names and paths ----

std::string WatchedTree::pathOf(Number directory) const {
    std::vector<std::string_view> names;
    for (Number at = directory; at != root_;) {
        const Directory& one = directories_.at(at);
        names.push_back(one.name);
        at = one.parent;
    }
    std::string path = path_;
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        if (path.back() != '/') path += '/';
        path += *name;
    }
    return path;
}

// Most events tell of the same directory as the one before.
const std::string& WatchedTree::recentPathOf(Number directory) {
    if (recent_ != directory) {
        recentPath_ = pathOf(directory);
        recent_ = directory;
    }
    return recentPath_;
}

bool WatchedTree::isBelow(Number directory, Number above) const {
    while (directory != kNone && directory != above) directory = directories_.at(directory).parent;
    return directory == above;
}

void WatchedTree::detach(const Directory& directory) {
    if (directory.next != kNone) directories_.at(directory.next).previous = directory.previous;
    if (directory.previous != kNone)
        directories_.at(directory.previous).next = directory.next;
    else if (directory.parent != kNone)
        directories_.at(directory.parent).firstChild = directory.next;
}

// Puts a directory, with all below it, where it was found.
void WatchedTree::place(Number directory, Number parent, std::string_view name) {
    Directory& moved = directories_.at(directory);
    recent_ = kNone;
    detach(moved);
    Directory& to = directories_.at(parent);
    moved.parent = parent;
    moved.previous = kNone;
    moved.next = to.firstChild;
    if (moved.next != kNone) directories_.at(moved.next).previous = directory;
    to.firstChild = directory;
    if (moved.name != name) moved.name = name;
}

// For a directory that the kernel does not watch any more.
void WatchedTree::forget(Number directory) {
    if (directory == root_) {
        ended_ = true;
        return;
    }
    while (directories_.at(directory).firstChild != kNone)
        drop(directories_.at(directory).firstChild);
    recent_ = kNone;
    detach(directories_.at(directory));
    directories_.erase(directory);
}

// Ends the watches of a directory and of all below it, from the bottom: a deep tree needs no stack.
void WatchedTree::drop(Number directory) {
    const Number above = directories_.at(directory).parent;
    for (Number at = directory; at != above;) {
        const Number child = directories_.at(at).firstChild;
        const Number parent = directories_.at(at).parent;
        if (child != kNone) {
            at = child;
            continue;
        }
        ::inotify_rm_watch(instance_.get(), at);
        forget(at);
        at = parent;
    }
}

// ---- The walk ----

// The host learns of what the walk finds and the tree did not know.
void WatchedTree::walkAgain(EventList& events) {
    walkIsDue_ = false;
    hasUnread_ = false;
    ++walk_;
    // It is not at its path any more, or may not be read.
    ended_ = !open(root_, O_PATH);
    if (ended_) return;
    walkFrom(root_, &events);
    dropUnfound();
}

// Lists `start` and all below it. Directories that were not known are told of in `news`, if any.
void WatchedTree::walkFrom(Number start, EventList* news) {
    std::vector<Number> unlisted{start};
    while (!unlisted.empty()) {
        const Number next = unlisted.back();
        unlisted.pop_back();
        if (directories_.contains(next)) list(next, unlisted, news);
    }
}

// The directory is watched already: what is made from now on has an event.
void WatchedTree::list(Number directory, std::vector<Number>& unlisted, EventList* news) {
    const Descriptor opened = open(directory, O_RDONLY);
    if (!opened) return miss(pathOf(directory), errno);
    directories_.at(directory).listed = walk_;
    eachSubdirectory(opened, [&](const char* name) {
        Number number = kNone;
        const Found found = add(directory, opened, name, number);
        if (found == Found::absent) return;
        unlisted.push_back(number);
        if (found == Found::added && news != nullptr)
            news->add(pathOf(number), FS_EVENT_CREATED | FS_EVENT_DIRECTORY);
    });
}

// A directory that could not be looked at. One that is not at its path was moved meanwhile.
void WatchedTree::miss(const std::string& path, int error) {
    if (isDenial(error))
        unwatched_.push_back(path);
    else
        walkIsDue_ = true;
}

// Empty, with errno, when the directory is not where it is thought to be. The proof is another
// watch of what was opened: it has the same number if it is the same directory.
Descriptor WatchedTree::open(Number directory, int flags) {
    Descriptor opened = openDirectory(pathOf(directory), flags);
    int number = kNone;
    if (opened) number = ::inotify_add_watch(instance_.get(), opened.link().c_str(), kWatch);
    if (number == directory) return opened;
    if (number >= 0) {
        if (!directories_.contains(number)) ::inotify_rm_watch(instance_.get(), number);
        errno = ESTALE;
    }
    const int error = errno;
    if (isDenial(error)) hasUnread_ = true;
    if (!isDenial(error) && !isAbsence(error)) fail(error);
    opened = Descriptor();
    errno = error;
    return opened;
}

// Watches the entry of a directory, if it is a directory of the same mount.
WatchedTree::Found WatchedTree::add(Number parent, const Descriptor& directory, const char* name,
                                    Number& number) {
    MountId mount;
    if (readMount(directory, name, mount) && mount != mount_) return Found::absent;
    number = ::inotify_add_watch(instance_.get(), joined(directory.link(), name).c_str(),
                                 kWatch | IN_DONT_FOLLOW);
    if (number < 0) {
        const int error = errno;
        if (!isDenial(error) && !isAbsence(error)) fail(error);
        if (isDenial(error)) {
            hasUnread_ = true;
            unwatched_.push_back(joined(pathOf(parent), name));
        }
        return Found::absent;
    }
    const auto [at, isNew] = directories_.try_emplace(number);
    // A directory that is found below itself was moved meanwhile.
    if (!isNew && isBelow(parent, number)) {
        walkIsDue_ = true;
        return Found::absent;
    }
    at->second.found = walk_;
    if (isNew || at->second.parent != parent || at->second.name != name)
        place(number, parent, name);
    return isNew ? Found::added : Found::known;
}

// Directories that this walk did not find have left the tree, or an event will tell where they are.
// Those below one that cannot be read stay: they cannot be found.
void WatchedTree::dropUnfound() {
    std::vector<Number> unfound;
    for (const auto& [number, directory] : directories_)
        if (number != root_ && directory.found != walk_ &&
            directories_.at(directory.parent).listed == walk_)
            unfound.push_back(number);
    for (const Number number : unfound)
        if (directories_.contains(number)) drop(number);
}

}  // namespace fscanner::monitor
