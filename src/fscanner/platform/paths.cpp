#include "fscanner/platform/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <new>
#include <string>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/utf8.h"
#include "fscanner/platform/descriptor.h"
#include "fscanner/platform/directory.h"
#include "fscanner/platform/private_directory.h"

namespace fscanner {

namespace {

std::atomic<bool> longPaths{false};

}  // namespace

std::size_t longestPath() {
    return hasLongPaths() ? SIZE_MAX : 1023;
}

void setLongPaths(bool on) {
    longPaths.store(on, std::memory_order_relaxed);
}

bool hasLongPaths() {
    return longPaths.load(std::memory_order_relaxed);
}

int removeFile(const wchar_t* name) {
    const std::unique_ptr<char[]> bytes(myWcsToMbs(name));
    return bytes ? std::remove(bytes.get()) : -1;
}

int renameFile(const wchar_t* from, const wchar_t* to) {
    const std::unique_ptr<char[]> oldName(myWcsToMbs(from));
    const std::unique_ptr<char[]> newName(myWcsToMbs(to));
    return oldName && newName ? std::rename(oldName.get(), newName.get()) : -1;
}

bool createExclusively(const char* name) {
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
    const Descriptor file(uninterrupted([&] { return open(name, flags, 0600); }));
    return static_cast<bool>(file);
}

char* getTempFile_Default(const char* prefix) {
    if (prefix == nullptr) prefix = "tav_";
    const std::size_t size = std::strlen(prefix) + sizeof "./2147483647";
    std::unique_ptr<char[]> name(new (std::nothrow) char[size]);
    if (!name) return nullptr;
    for (int n = 0;; n = n == INT_MAX ? 0 : n + 1) {
        std::snprintf(name.get(), size, "./%s%d", prefix, n);
        if (createExclusively(name.get())) return name.release();
    }
}

namespace {

std::wstring userNameOrLogin(const wchar_t* user) {
    if (user != nullptr) return user;
    std::wstring name = toWide(userName());
    if (name.empty()) debug("::common - GetUserNameW(...) failed!\n");
    return name;
}

bool makePrivateDirectory(const std::wstring& path) {
    if (mkdir(toMultibyte(path).c_str(), 0700) == 0 || errno == EEXIST) return true;
    debug("::common - CreateDirectory(...) failed [rc = %d]!\n", errno);
    return false;
}

}  // namespace

std::optional<std::wstring> userCacheDirectory(const wchar_t* base, const wchar_t* user,
                                               bool create) {
    const std::wstring name = userNameOrLogin(user);
    // A "/" in the name would lead out of the base directory.
    if (name.empty() || name.find(L'/') != name.npos) {
        debug("::common - unable to determine the current user name.\n");
        return std::nullopt;
    }
    debug("::common - user name is '%ls'\n", name.c_str());
    std::wstring path = joinPath(base, L"__" + name);
    debug("::common - full cache path name is '%ls'\n", path.c_str());
    if (create && !makePrivateDirectory(path)) return std::nullopt;
    return path;
}

// ---- Links ------------------------------------------------------------------

namespace {

constexpr int kMaxLinks = 32;  // the kernel allows 40

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
        if (++links_ > kMaxLinks) return fail(ELOOP);
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

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

wchar_t* getFullPathName(const wchar_t* dir, const wchar_t* name) {
    if (dir == nullptr || name == nullptr) return nullptr;
    try {
        return mallocCopy(joinPath(dir, name));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

bool fullPath2Component(const wchar_t* fullPath, wchar_t separator, wchar_t** dir, wchar_t** name) {
    const std::wstring_view path(fullPath);
    const std::size_t at = path.rfind(separator);
    if (at == path.npos) return false;
    HeapText leading(mallocCopy(path.substr(0, at + 1)));
    HeapText last(mallocCopy(path.substr(at + 1)));
    if (!leading || !last) return false;
    *dir = leading.release();
    *name = last.release();
    return true;
}

wchar_t* getUserCacheDir(const wchar_t* base, bool create) {
    return getUserCacheDir(base, nullptr, create);
}

wchar_t* getUserCacheDir(const wchar_t* base, const wchar_t* user, bool create) try {
    if (base == nullptr) return nullptr;
    const std::optional<std::wstring> path = userCacheDirectory(base, user, create);
    return path ? mallocCopy(*path) : nullptr;
} catch (const std::bad_alloc&) {
    return nullptr;
}

}  // namespace fscanner
