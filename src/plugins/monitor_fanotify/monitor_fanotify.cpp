// The monitor for root: one mark on each file system tells of all changes on it.
//
// An event names its directory by a handle. The handle is opened through a mount that a watched
// tree is seen through, and the link of that descriptor in /proc is the directory's path now. Paths
// are kept by handle until a directory is moved or removed: then all paths below it are others.
//
// No descriptor stays open between two calls, because it would keep a disk from being unmounted.

#include <linux/fanotify.h>
#include <sys/fanotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "fscanner/fs/fs_events.h"
#include "fscanner/fs/fs_provider.h"
#include "monitor_support/descriptor.h"
#include "monitor_support/event_list.h"
#include "monitor_support/tree.h"

namespace fscanner::monitor {

namespace {

static_assert(kWatchedChanges == (FAN_MODIFY | FAN_ATTRIB | FAN_CLOSE_WRITE | FAN_MOVED_FROM |
                                  FAN_MOVED_TO | FAN_CREATE | FAN_DELETE) &&
              kOnDirectory == FAN_ONDIR);

// Directories whose paths are known: about 1 MiB.
constexpr std::size_t kKnownDirectories = 4096;
constexpr unsigned kEntryMoves =
    FS_EVENT_CREATED | FS_EVENT_DELETED | FS_EVENT_MOVED_FROM | FS_EVENT_MOVED_TO;

bool isOn(const MountId& mount, const Descriptor& directory) {
    MountId own;
    return readMount(directory, "", own) && own == mount;
}

struct WatchedTree {
    std::string path;
    std::uint64_t fileSystem;
    MountId mount;
};

/// A mount that trees are seen through, while events are taken.
struct View {
    MountId mount;
    std::uint64_t fileSystem;
    Descriptor directory;
};

/// What an event says, read from its bytes.
struct Change {
    std::string_view directory;  ///< the file system's number and the handle; empty: not told
    std::string_view name;       ///< "." for the directory itself
    std::uint32_t mask;
};

std::uint64_t fileSystemOf(std::string_view directory) {
    std::uint64_t number;
    std::memcpy(&number, directory.data(), sizeof number);
    return number;
}

// What follows the metadata: 4 bytes of header, 8 of the file system's number, the handle (its
// length, its type, so many bytes), the name and a 0. Events are aligned to 4 bytes only.
Change readChange(const fanotify_event_metadata& event, std::string_view bytes) {
    Change change{{}, ".", static_cast<std::uint32_t>(event.mask)};
    fanotify_event_info_fid info;
    if (bytes.size() < sizeof info + sizeof(file_handle)) return change;
    std::memcpy(&info, bytes.data(), sizeof info);
    const auto type = info.hdr.info_type;
    if (type != FAN_EVENT_INFO_TYPE_DFID && type != FAN_EVENT_INFO_TYPE_DFID_NAME) return change;
    file_handle handle;
    std::memcpy(&handle, bytes.data() + sizeof info, sizeof handle);
    const std::size_t end = sizeof info + sizeof handle + handle.handle_bytes;
    if (handle.handle_bytes == 0 || end > info.hdr.len || info.hdr.len > bytes.size())
        return change;
    change.directory = bytes.substr(sizeof info.hdr, end - sizeof info.hdr);
    if (type == FAN_EVENT_INFO_TYPE_DFID_NAME) change.name = bytes.data() + end;
    return change;
}

enum class Place { found, gone, unknown };

// "gone" is what has no path any more. The text " (deleted)" alone does not say so: it may be a
// part of the name.
Place readPlace(const Descriptor& directory, std::string& path) {
    path = pathOf(directory);
    if (path.empty() || path.size() >= PATH_MAX) return Place::unknown;
    if (!path.ends_with(" (deleted)")) return Place::found;
    struct stat opened {};
    struct stat named {};
    if (::fstat(directory.get(), &opened) != 0) return Place::unknown;
    const bool same = ::lstat(path.c_str(), &named) == 0 && named.st_ino == opened.st_ino &&
                      named.st_dev == opened.st_dev;
    return same ? Place::found : Place::gone;
}

// Where the directory of an event is now. `directory` is as in `Change`, aligned by the kernel.
Place locate(const View& view, std::string_view directory, std::string& path) {
    const char* handle = directory.data() + sizeof(std::uint64_t);
    auto* bytes = reinterpret_cast<file_handle*>(const_cast<char*>(handle));
    const Descriptor opened(::open_by_handle_at(view.directory.get(), bytes, O_PATH | O_CLOEXEC));
    if (opened) return readPlace(opened, path);
    return errno == ESTALE ? Place::gone : Place::unknown;
}

class FanotifyMonitor : public FsMonitor {
public:
    FanotifyMonitor()
        : group_(::fanotify_init(
              FAN_CLASS_NOTIF | FAN_REPORT_DFID_NAME | FAN_CLOEXEC | FAN_NONBLOCK, 0)),
          error_(group_ ? 0 : errno) {}

    const char* name() const override { return "monitor_fanotify"; }
    int watch(const wchar_t* path, std::wstring& problem) override try {
        return start(path, problem);
    } catch (const std::exception&) {
        return ENOMEM;
    }
    void unwatch(const wchar_t* path) override try {
        stop(treePath(path));
    } catch (const std::exception&) {
        // Its events still come: a host may get them after the end anyway.
    }
    int descriptor() const override { return group_.get(); }
    int take(FS_Queue& queue) override;

private:
    int start(const wchar_t* path, std::wstring& problem);
    int mark(const Tree& tree, std::wstring& problem) const;
    void stop(const std::string& path);
    void openViews(EventList& events);
    bool openView(const WatchedTree& tree);
    void read(EventList& events);
    void tell(const Change& change, EventList& events);
    void tellLoss(std::uint64_t fileSystem, EventList& events) const;
    const std::vector<std::string>* pathsOf(std::string_view directory);
    bool concerns(std::string_view path, unsigned action) const;

    struct Hash {
        using is_transparent = void;  // NOLINT(readability-identifier-naming)
        std::size_t operator()(std::string_view text) const {
            return std::hash<std::string_view>()(text);
        }
    };

    Descriptor group_;
    int error_;
    std::vector<WatchedTree> trees_;
    std::vector<View> views_;
    // By `Change::directory`: the paths of those that lie in a tree or hold one, one for each view.
    std::unordered_map<std::string, std::vector<std::string>, Hash, std::equal_to<>> known_;
    alignas(fanotify_event_metadata) std::array<char, 65536> buffer_{};
};

int explain(int error, const std::string& path, std::wstring& problem) {
    switch (error) {
        case EPERM:
            return refuse(error, "monitor_fanotify needs root", problem);
        case ENOSYS:
        case EINVAL:
            return refuse(error, "monitor_fanotify needs Linux 5.9, with fanotify", problem);
        case EMFILE:
            return refuse(error, "too many monitors: see the sysctl fs.fanotify.max_user_groups",
                          problem);
        case ENODEV:
        case EXDEV:
        case EOPNOTSUPP:
            return refuse(error, path + ": the kernel cannot watch this file system as a whole",
                          problem);
        default:
            return refuse(error, path + ": " + std::strerror(error), problem);
    }
}

// Without the right to open handles no event could be understood, so that is tried first. A mount
// cannot be named by a descriptor of O_PATH there.
int openByHandle(const Descriptor& directory) {
    alignas(file_handle) std::array<char, sizeof(file_handle) + MAX_HANDLE_SZ> bytes{};
    auto* handle = reinterpret_cast<file_handle*>(bytes.data());
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mount = 0;
    if (::name_to_handle_at(directory.get(), "", handle, &mount, AT_EMPTY_PATH) != 0) return errno;
    const Descriptor mounted(::open(directory.link().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const Descriptor again(::open_by_handle_at(mounted.get(), handle, O_PATH | O_CLOEXEC));
    return again ? 0 : errno;
}

int FanotifyMonitor::mark(const Tree& tree, std::wstring& problem) const {
    if (error_ != 0) return explain(error_, tree.path, problem);
    if (const int error = openByHandle(tree.directory)) return explain(error, tree.path, problem);
    if (::fanotify_mark(group_.get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM,
                        kWatchedChanges | FAN_ONDIR, AT_FDCWD, tree.directory.link().c_str()) != 0)
        return explain(errno, tree.path, problem);
    return 0;
}

// A mark that is there already stays. One that an unmounted file system had is made again.
int FanotifyMonitor::start(const wchar_t* path, std::wstring& problem) {
    Tree tree;
    if (const int error = openTree(path, tree, problem)) return error;
    struct statfs fileSystem {};
    if (::fstatfs(tree.directory.get(), &fileSystem) != 0)
        return explain(errno, tree.path, problem);
    if (const int error = mark(tree, problem)) return error;
    std::uint64_t number;
    static_assert(sizeof fileSystem.f_fsid == sizeof number);
    std::memcpy(&number, &fileSystem.f_fsid, sizeof number);
    std::erase_if(trees_, [&](const WatchedTree& other) { return other.path == tree.path; });
    trees_.push_back({std::move(tree.path), number, tree.mount});
    known_.clear();
    return 0;
}

// The mark of a file system ends with its last tree. Where it cannot be reached, it stays until no
// tree is left: its events are dropped.
void FanotifyMonitor::stop(const std::string& path) {
    const auto ended = std::ranges::find(trees_, path, &WatchedTree::path);
    if (ended == trees_.end()) return;
    const WatchedTree tree = *ended;
    trees_.erase(ended);
    known_.clear();
    if (trees_.empty())
        ::fanotify_mark(group_.get(), FAN_MARK_FLUSH | FAN_MARK_FILESYSTEM, 0, AT_FDCWD, nullptr);
    if (std::ranges::count(trees_, tree.fileSystem, &WatchedTree::fileSystem) != 0) return;
    const Descriptor directory = openDirectory(tree.path, O_PATH);
    if (!directory || !isOn(tree.mount, directory)) return;
    ::fanotify_mark(group_.get(), FAN_MARK_REMOVE | FAN_MARK_FILESYSTEM,
                    kWatchedChanges | FAN_ONDIR, AT_FDCWD, directory.link().c_str());
}

int FanotifyMonitor::take(FS_Queue& queue) try {
    EventList events;
    openViews(events);
    read(events);
    views_.clear();
    return events.sendTo(queue);
} catch (const std::system_error& error) {
    views_.clear();
    return -error.code().value();
} catch (const std::exception&) {
    views_.clear();
    return -ENOMEM;
}

// A tree whose mount is not found at its path any more is not watched any more.
void FanotifyMonitor::openViews(EventList& events) {
    std::erase_if(trees_, [&](const WatchedTree& tree) {
        if (openView(tree)) return false;
        events.add(tree.path, FS_EVENT_UNWATCHED | FS_EVENT_DIRECTORY);
        known_.clear();
        return true;
    });
}

// The directory of the tree may be gone, while its mount is still that of a directory above it.
bool FanotifyMonitor::openView(const WatchedTree& tree) {
    for (std::string path = tree.path;; path.resize(std::max<std::size_t>(path.rfind('/'), 1))) {
        Descriptor directory = openDirectory(path, O_RDONLY);
        if (!directory && errno != ENOENT && errno != ENOTDIR && errno != ELOOP)
            throw std::system_error(errno, std::generic_category());
        if (!directory && path != "/") continue;
        if (!directory || !isOn(tree.mount, directory)) return false;
        if (std::ranges::find(views_, tree.mount, &View::mount) == views_.end())
            views_.push_back({tree.mount, tree.fileSystem, std::move(directory)});
        return true;
    }
}

// Ends after what was queued when it began: others may go on to change files all the time.
void FanotifyMonitor::read(EventList& events) {
    int queued = 0;
    if (::ioctl(group_.get(), FIONREAD, &queued) != 0) queued = 0;
    for (long left = queued / static_cast<long>(FAN_EVENT_METADATA_LEN); left > 0;) {
        const ssize_t length = ::read(group_.get(), buffer_.data(), buffer_.size());
        if (length < 0 && errno == EINTR) continue;
        if (length < 0 && errno != EAGAIN) throw std::system_error(errno, std::generic_category());
        if (length <= 0) return;
        std::string_view rest(buffer_.data(), static_cast<std::size_t>(length));
        for (fanotify_event_metadata event; rest.size() >= sizeof event; --left) {
            std::memcpy(&event, rest.data(), sizeof event);
            if (event.event_len < std::max<std::size_t>(sizeof event, event.metadata_len) ||
                event.event_len > rest.size())
                break;
            const std::size_t told = event.event_len - event.metadata_len;
            tell(readChange(event, rest.substr(event.metadata_len, told)), events);
            rest.remove_prefix(event.event_len);
        }
    }
}

void FanotifyMonitor::tell(const Change& change, EventList& events) {
    if ((change.mask & FAN_Q_OVERFLOW) != 0) return events.add("", FS_EVENT_OVERFLOW);
    if (change.directory.empty()) return tellLoss(0, events);
    // Before the path is looked for: the one that is known may be that of before the move.
    constexpr std::uint32_t moves = FAN_MOVED_FROM | FAN_MOVED_TO | FAN_DELETE;
    if ((change.mask & FAN_ONDIR) != 0 && (change.mask & moves) != 0) known_.clear();
    const auto* paths = pathsOf(change.directory);
    if (paths == nullptr) return tellLoss(fileSystemOf(change.directory), events);
    const unsigned action = actionOf(change.mask);
    for (const std::string& directory : *paths) {
        const std::string path = change.name == "." ? directory : joined(directory, change.name);
        if (concerns(path, action)) events.add(path, action);
    }
}

// 0: whatever the file system.
void FanotifyMonitor::tellLoss(std::uint64_t fileSystem, EventList& events) const {
    for (const WatchedTree& tree : trees_)
        if (fileSystem == 0 || tree.fileSystem == fileSystem)
            events.add(tree.path, FS_EVENT_OVERFLOW);
}

// Null if a path cannot be told. A directory that is gone has none: the event of its removal tells.
const std::vector<std::string>* FanotifyMonitor::pathsOf(std::string_view directory) {
    if (const auto known = known_.find(directory); known != known_.end()) return &known->second;
    std::vector<std::string> paths;
    for (const View& view : views_) {
        std::string path;
        if (view.fileSystem != fileSystemOf(directory)) continue;
        const Place place = locate(view, directory, path);
        if (place == Place::unknown) return nullptr;
        if (place == Place::found && concerns(path, kEntryMoves)) paths.push_back(std::move(path));
    }
    if (known_.size() >= kKnownDirectories) known_.clear();
    return &known_.emplace(directory, std::move(paths)).first->second;
}

// What lies in a tree, and the fate of the directories that hold one.
bool FanotifyMonitor::concerns(std::string_view path, unsigned action) const {
    return std::ranges::any_of(trees_, [&](const WatchedTree& tree) {
        return isInside(tree.path, path) ||
               ((action & kEntryMoves) != 0 && isInside(path, tree.path));
    });
}

}  // namespace

}  // namespace fscanner::monitor

namespace fscanner {

FsMonitor* createMonitor(const FsConfig*) {
    try {
        return new monitor::FanotifyMonitor;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace fscanner
