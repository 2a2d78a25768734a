// The monitor for every user: a watch on each directory, as many as a sysctl allows.
//
// Each tree has an inotify instance of its own, so that a tree that is full of changes, or lost, is
// no matter to the others. An epoll descriptor stands for all of them.

#include <sys/epoll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <list>
#include <string>
#include <system_error>

#include "fscanner/fs/fs_provider.h"
#include "monitor_inotify/watched_tree.h"
#include "monitor_support/descriptor.h"
#include "monitor_support/event_list.h"
#include "monitor_support/tree.h"

namespace fscanner::monitor {

namespace {

class InotifyMonitor : public FsMonitor {
public:
    InotifyMonitor() : readable_(::epoll_create1(EPOLL_CLOEXEC)) {}

    const char* name() const override { return "monitor_inotify"; }
    int watch(const wchar_t* path, std::wstring& problem) override;
    void unwatch(const wchar_t* path) override try {
        end(treePath(path));
    } catch (const std::exception&) {
        // Its events still come: a host may get them after the end anyway.
    }
    int descriptor() const override { return readable_.get(); }
    int take(FS_Queue& queue) override;

private:
    void start(const Tree& tree);
    void end(const std::string& path) {
        trees_.remove_if([&](const WatchedTree& tree) { return tree.path() == path; });
    }

    Descriptor readable_;
    std::list<WatchedTree> trees_;
};

// Directories of the tree, itself included, as far as they can be counted.
std::size_t countDirectories(const std::string& path) {
    namespace fs = std::filesystem;
    struct stat root {};
    struct stat status {};
    std::error_code error;
    std::size_t count = ::lstat(path.c_str(), &root) == 0 ? 1 : 0;
    fs::recursive_directory_iterator at(path, fs::directory_options::skip_permission_denied, error);
    for (; !error && at != fs::recursive_directory_iterator(); at.increment(error)) {
        if (at->is_symlink(error) || !at->is_directory(error)) continue;
        const bool same = ::lstat(at->path().c_str(), &status) == 0 && status.st_dev == root.st_dev;
        if (same)
            ++count;
        else
            at.disable_recursion_pending();
    }
    return count;
}

std::size_t readNumber(const char* path) {
    std::size_t number = 0;
    std::ifstream(path) >> number;
    return number;
}

// A user namespace has a limit of its own, beside that of the machine's users.
std::string explainLimit(const std::string& path) {
    const std::size_t ofUser = readNumber("/proc/sys/fs/inotify/max_user_watches");
    const std::size_t ofNamespace = readNumber("/proc/sys/user/max_inotify_watches");
    const bool byNamespace = ofNamespace < ofUser;
    return path + " has " + std::to_string(countDirectories(path)) + " directories, and only " +
           std::to_string(byNamespace ? ofNamespace : ofUser) +
           " may be watched by all programs of a user: raise the sysctl " +
           (byNamespace ? "user.max_inotify_watches" : "fs.inotify.max_user_watches");
}

std::string explain(int error, const std::string& path) {
    switch (error) {
        case ENOSPC:
            return explainLimit(path);
        case EMFILE:
            return "too many monitors or open files: see the sysctl fs.inotify.max_user_instances";
        default:
            return path + ": " + std::strerror(error);
    }
}

// A tree that is watched already is watched anew. Its old watches go first: the limit may not allow
// both.
int InotifyMonitor::watch(const wchar_t* path, std::wstring& problem) try {
    Tree tree;
    if (const int error = openTree(path, tree, problem)) return error;
    end(tree.path);
    try {
        start(tree);
        return 0;
    } catch (const std::system_error& error) {
        const int code = error.code().value();
        return refuse(code, explain(code, tree.path), problem);
    }
} catch (const std::exception&) {
    return ENOMEM;
}

void InotifyMonitor::start(const Tree& tree) {
    std::list<WatchedTree> started;
    epoll_event readable{};
    readable.events = EPOLLIN;
    const int instance = started.emplace_back(tree).descriptor();
    if (::epoll_ctl(readable_.get(), EPOLL_CTL_ADD, instance, &readable) != 0)
        throw std::system_error(errno, std::generic_category());
    trees_.splice(trees_.end(), started);
}

int InotifyMonitor::take(FS_Queue& queue) try {
    EventList events;
    trees_.remove_if([&](WatchedTree& tree) { return !tree.take(events); });
    return events.sendTo(queue);
} catch (const std::exception&) {
    return -ENOMEM;
}

}  // namespace

}  // namespace fscanner::monitor

namespace fscanner {

FsMonitor* createMonitor(const FsConfig*) {
    try {
        return new monitor::InotifyMonitor;
    } catch (...) {
        return nullptr;
    }
}

}  // namespace fscanner
