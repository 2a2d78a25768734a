#include "monitor_support/tree.h"

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>

#include "fscanner/fs/fs_text.h"

namespace fscanner::monitor {

std::string treePath(const wchar_t* path) {
    std::string text;
    if (!fsToMultibyte(path, text)) return {};
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    return text;
}

bool isInside(std::string_view tree, std::string_view path) {
    if (tree == "/") return true;
    return path.starts_with(tree) && (path.size() == tree.size() || path[tree.size()] == '/');
}

std::string joined(std::string_view directory, std::string_view name) {
    std::string path;
    path.reserve(directory.size() + 1 + name.size());
    path += directory;
    if (!directory.ends_with('/')) path += '/';
    return path += name;
}

int refuse(int error, const std::string& text, std::wstring& problem) {
    if (!fsToWide(text.c_str(), problem)) problem.clear();
    return error;
}

std::string pathOf(const Descriptor& file) {
    std::array<char, PATH_MAX + 1> path;
    const ssize_t length = ::readlink(file.link().c_str(), path.data(), path.size());
    if (length < 0) return {};
    return {path.data(), static_cast<std::size_t>(length)};
}

bool readMount(const Descriptor& directory, const char* name, MountId& mount) {
    constexpr unsigned kUniqueMountId = 0x4000;  // younger than the C library's headers
    constexpr int kFlags = AT_EMPTY_PATH | AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
    struct statx status {};
    if (::statx(directory.get(), name, kFlags, STATX_MNT_ID | kUniqueMountId, &status) != 0)
        return false;
    const std::uint64_t device = std::uint64_t{status.stx_dev_major} << 32 | status.stx_dev_minor;
    mount = {status.stx_mnt_id, status.stx_mnt_id != 0 ? 0 : device};
    return true;
}

int openTree(const wchar_t* path, Tree& tree, std::wstring& problem) {
    tree.path = treePath(path);
    if (!tree.path.starts_with('/')) return refuse(EINVAL, "the path is not absolute", problem);
    tree.directory = openDirectory(tree.path, O_PATH);
    if (!tree.directory || !readMount(tree.directory, "", tree.mount)) {
        const int error = errno;
        return refuse(error, tree.path + ": " + std::strerror(error), problem);
    }
    // Paths that cannot be read back (too long, no /proc) are taken as they are.
    const std::string real = pathOf(tree.directory);
    if (real.empty() || real == tree.path) return 0;
    return refuse(EINVAL, tree.path + " leads through a link to " + real + ": watch that", problem);
}

}  // namespace fscanner::monitor
