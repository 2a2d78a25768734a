#include "fscan/screen/file_view.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "fscan/text/text.h"
#include "fscan/text/values.h"

namespace fscan {

namespace {

const char* kindOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return (mode & 0111) != 0 ? "x" : "f";
        case S_IFDIR:
            return "d";
        case S_IFLNK:
            return "l";
        case S_IFIFO:
            return "p";
        case S_IFSOCK:
            return "s";
        case S_IFBLK:
            return "b";
        default:
            return "c";
    }
}

std::vector<std::string> linesOf(std::string_view text, std::size_t most) {
    std::vector<std::string> lines;
    while (!text.empty() && lines.size() < most) {
        const std::size_t end = text.find('\n');
        std::string line;
        for (const char c : text.substr(0, end))
            if (c == '\t')
                line.append(4 - line.size() % 4, ' ');
            else if (c != '\r')
                line += c;
        lines.push_back(escaped(line));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return lines;
}

}  // namespace

FileRow describe(const std::string& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) return {"?", "", ""};
    return {kindOf(info.st_mode),
            S_ISDIR(info.st_mode) ? "" : sizeText(static_cast<unsigned long long>(info.st_size)),
            momentText(info.st_mtime)};
}

std::vector<std::string> previewOf(const std::string& path, std::size_t lines) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) return {std::string("(") + std::strerror(errno) + ")"};
    if (S_ISDIR(info.st_mode)) return {"(a directory)"};
    if (!S_ISREG(info.st_mode)) return {"(no regular file)"};
    const int file =
        ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
    if (file < 0) return {std::string("(") + std::strerror(errno) + ")"};
    std::array<char, 8192> buffer;
    ssize_t length = -1;
    // Another one may have taken its place: a pipe would be waited for.
    if (::fstat(file, &info) == 0 && S_ISREG(info.st_mode))
        length = ::read(file, buffer.data(), buffer.size());
    ::close(file);
    if (length < 0) return {"(it cannot be read)"};
    if (length == 0) return {"(empty)"};
    const std::string_view text(buffer.data(), static_cast<std::size_t>(length));
    if (text.find('\0') != text.npos) return {"(no text)"};
    return linesOf(text, lines);
}

}  // namespace fscan
