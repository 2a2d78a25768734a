#include "fscan/ignore/ignore_rules.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "fscan/text/text.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

constexpr off_t kLargestFile = 128 << 10;
constexpr const char* kRepository = ".git";

class Descriptor {
public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    int get() const { return descriptor_; }

    /// Opens an entry, but no link, and does not wait for the writer of a pipe.
    Descriptor open(const char* name, int flags = 0) const {
        if (descriptor_ < 0) return Descriptor(-1);
        constexpr int always = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
        return Descriptor(openat(descriptor_, name, always | flags));
    }
    bool has(const char* name) const {
        struct stat info {};
        return descriptor_ >= 0 && fstatat(descriptor_, name, &info, AT_SYMLINK_NOFOLLOW) == 0;
    }

private:
    int descriptor_;
};

Descriptor openDirectory(const std::string& path) {
    return Descriptor(fscanner::fsOpenDirectory(toWide(path).c_str()));
}

/// The file's text; empty where it is no regular file, too large, or cannot be read.
std::string readText(const Descriptor& file) {
    struct stat info {};
    if (file.get() < 0 || fstat(file.get(), &info) != 0) return {};
    if (!S_ISREG(info.st_mode) || info.st_size > kLargestFile) return {};
    std::string text(static_cast<std::size_t>(info.st_size), '\0');
    std::size_t size = 0;
    while (size < text.size()) {
        const ssize_t count = read(file.get(), text.data() + size, text.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return {};
        if (count == 0) break;
        size += static_cast<std::size_t>(count);
    }
    text.resize(size);
    return text;
}

/// The directory that holds this one, which is not "/".
std::string_view parentOf(std::string_view path) {
    return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

std::string withSlash(std::string path) {
    if (!path.ends_with('/')) path += '/';
    return path;
}

/// The end of the path's component that begins at `start`, or behind the "/" there.
std::size_t endOfComponent(std::string_view path, std::size_t start) {
    return std::min(path.find('/', start + 1), path.size());
}

}  // namespace

IgnoreRules::IgnoreRules(const std::wstring& root, Kinds kinds)
    : root_(withoutFinalSlash(root)), kinds_(kinds), directory_(root_), path_(toBytes(root_)) {
    steps_.push_back({path_.size(), {}});
    if (kinds_.files) steps_.back().state.levels = levelsOfRoot(path_);
}

namespace {

/// Whether the repository in the directory belongs to root or to this user.
bool isOurs(std::string_view directory) {
    struct stat info {};
    const std::string path = withSlash(std::string(directory)) + kRepository;
    return lstat(path.c_str(), &info) == 0 && (info.st_uid == 0 || info.st_uid == geteuid());
}

}  // namespace

IgnoreRules::Levels IgnoreRules::levelsOfRoot(const std::string& root) {
    const auto isRepository = [](std::string_view path) {
        return openDirectory(std::string(path)).has(kRepository);
    };
    std::string_view top = root;
    while (top.size() > 1 && !isRepository(top)) top = parentOf(top);
    // Outside of repositories, what lies above does not count, and neither does a repository that
    // others have put above the root.
    if (!isRepository(top) || !isOurs(top)) top = root;
    Levels levels = readLevel(std::string(top), nullptr);
    for (std::size_t end = top.size(); end < root.size();) {
        end = endOfComponent(root, end);
        levels = readLevel(root.substr(0, end), levels);
    }
    return levels;
}

IgnoreRules::Levels IgnoreRules::readLevel(const std::string& directory, const Levels& above) {
    const Descriptor place = openDirectory(directory);
    auto level = std::make_shared<Level>();
    const bool isRepository = place.has(kRepository);
    if (!isRepository) level->above = above;
    level->base = withSlash(directory).size();
    level->ignore = IgnoreFile(readText(place.open(".ignore")));
    level->gitignore = IgnoreFile(readText(place.open(".gitignore")));
    if (isRepository)
        level->exclude = IgnoreFile(readText(
            place.open(kRepository, O_DIRECTORY).open("info", O_DIRECTORY).open("exclude")));
    const bool empty = level->ignore.empty() && level->gitignore.empty() && level->exclude.empty();
    return empty ? level->above : level;
}

/// From the deepest level up: the first that has a rule for the path decides.
IgnoreFile::Verdict IgnoreRules::verdict(const Level* levels, IgnoreFile Level::*file,
                                         std::string_view path, bool isDirectory) {
    for (; levels != nullptr; levels = levels->above.get()) {
        const auto found = (levels->*file).verdict(path.substr(levels->base), isDirectory);
        if (found != IgnoreFile::Verdict::none) return found;
    }
    return IgnoreFile::Verdict::none;
}

bool IgnoreRules::covers(const Level* levels, std::string_view path, bool isDirectory) const {
    const std::string_view name = path.substr(path.rfind('/') + 1);
    if (kinds_.hidden && name.starts_with('.')) return true;
    if (!kinds_.files) return false;
    if (name == kRepository) return true;
    for (const auto file : {&Level::ignore, &Level::gitignore, &Level::exclude}) {
        const auto found = verdict(levels, file, path, isDirectory);
        if (found != IgnoreFile::Verdict::none) return found == IgnoreFile::Verdict::ignored;
    }
    return false;
}

IgnoreRules::State IgnoreRules::below(const State& above, const std::string& path) const {
    if (above.left || covers(above.levels.get(), path, true)) return {true};
    return {false, kinds_.files ? readLevel(path, above.levels) : nullptr};
}

/// Goes up to what the directory has in common with the last one, and down again.
void IgnoreRules::enter(const std::string& directory) {
    const auto differ =
        std::mismatch(path_.begin(), path_.end(), directory.begin(), directory.end());
    const auto same = static_cast<std::size_t>(differ.first - path_.begin());
    const auto isAbove = [&](std::size_t length) {
        return length <= same && (length == directory.size() || directory[length] == '/' ||
                                  directory[length - 1] == '/');
    };
    while (steps_.size() > 1 && !isAbove(steps_.back().length)) steps_.pop_back();
    for (std::size_t end = steps_.back().length; end < directory.size();) {
        end = endOfComponent(directory, end);
        steps_.push_back({end, below(steps_.back().state, directory.substr(0, end))});
    }
    path_ = directory;
}

void IgnoreRules::enter(std::wstring_view directory) {
    directory = withoutFinalSlash(directory);
    if (directory_ == directory) return;
    enter(toBytes(directory));
    directory_ = directory;
}

bool IgnoreRules::covers(std::wstring_view directory, const wchar_t* name, bool isDirectory) {
    enter(directory);
    const State& state = steps_.back().state;
    if (state.left) return true;
    const std::size_t size = path_.size();
    if (!path_.ends_with('/')) path_ += '/';
    appendBytes(path_, name);
    const bool covered = covers(state.levels.get(), path_, isDirectory);
    path_.resize(size);
    return covered;
}

bool IgnoreRules::enters(std::wstring_view directory) {
    const std::wstring path(withoutFinalSlash(directory));
    // The rules of the directory itself are not needed yet.
    const std::size_t slash = path.rfind(L'/');
    const std::wstring above = path.substr(0, std::max<std::size_t>(slash, 1));
    return path == root_ || !liesIn(path, root_) || !covers(above, path.c_str() + slash + 1, true);
}

}  // namespace fscan
