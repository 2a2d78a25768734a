#include "fscanner/platform/real_path.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fscanner/platform/directory.h"
#include "fscanner/platform/paths.h"

namespace fscanner {

namespace {

constexpr int maxLinks = 32;  // the kernel allows 40

std::optional<std::string> currentDirectory() {
    const std::unique_ptr<char, decltype(&std::free)> path(getcwd(nullptr, 0), &std::free);
    if (!path) return std::nullopt;
    if (std::strlen(path.get()) > longestPath()) {
        errno = ENAMETOOLONG;
        return std::nullopt;
    }
    return std::string(path.get());
}

/// One resolution. `built_` is resolved: it has no links and no final "/" (the root
/// is the empty text). `rest_` is still to be resolved; a link's target is put in
/// front of it.
class PathWalk {
public:
    PathWalk(std::string start, std::string_view rest, const LinkGuard& mayRead)
        : built_(std::move(start)), rest_(rest), mayRead_(mayRead) {}

    std::optional<std::string> run() {
        for (std::string name = takeComponent(); !name.empty(); name = takeComponent()) {
            if (!step(name)) return std::nullopt;
        }
        return built_.empty() ? "/" : built_;
    }

private:
    std::string takeComponent() {
        rest_.erase(0, rest_.find_first_not_of('/'));
        std::string name = rest_.substr(0, rest_.find('/'));
        rest_.erase(0, name.size());
        return name;
    }

    bool step(const std::string& name) {
        if (name == ".") return true;
        if (name == "..") {
            dropLast();
            return true;
        }
        built_ += '/';
        built_ += name;
        if (built_.size() > longestPath()) return fail(ENAMETOOLONG);
        if (!mayRead_(built_)) return true;
        const std::optional<std::string> target = readLink(built_);
        return target ? follow(*target) : errno == EINVAL;  // EINVAL: exists, but is no link
    }

    bool follow(const std::string& target) {
        if (++links_ > maxLinks) return fail(ELOOP);
        if (target.size() + rest_.size() > longestPath()) return fail(ENAMETOOLONG);
        if (target.starts_with('/')) {
            built_.clear();
        } else {
            dropLast();
        }
        rest_.insert(0, target);
        return true;
    }

    static bool fail(int error) {
        errno = error;
        return false;
    }

    void dropLast() { built_.erase(built_.empty() ? 0 : built_.rfind('/')); }

    std::string built_;
    std::string rest_;
    const LinkGuard& mayRead_;
    int links_ = 0;
};

}  // namespace

std::optional<std::string> readLink(const std::string& path) {
    // A target that fills the buffer may be cut, so it counts as too long.
    std::array<char, PATH_MAX> target;
    const ssize_t length = readLinkTarget(path, target);
    if (length < 0) return std::nullopt;
    if (static_cast<std::size_t>(length) > std::min(longestPath(), target.size() - 1)) {
        errno = ENAMETOOLONG;
        return std::nullopt;
    }
    return std::string(target.data(), static_cast<std::size_t>(length));
}

std::optional<std::string> resolvePath(std::string_view path, const LinkGuard& mayRead) {
    if (path.size() > longestPath()) {
        errno = ENAMETOOLONG;
        return std::nullopt;
    }
    std::string start;
    if (!path.starts_with('/')) {
        const std::optional<std::string> directory = currentDirectory();
        if (!directory) return std::nullopt;
        if (*directory != "/") start = *directory;
    }
    return PathWalk(std::move(start), path, mayRead).run();
}

}  // namespace fscanner
