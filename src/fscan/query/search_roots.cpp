#include "fscan/query/search_roots.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>

#include "fscan/options/hints.h"
#include "fscan/options/options.h"
#include "fscan/options/words.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

struct Free {
    void operator()(char* text) const { std::free(text); }
};

/// The real path of a directory; empty, with errno, where it is none.
std::wstring realDirectory(const std::string& path) {
    const std::unique_ptr<char, Free> real(realpath(path.c_str(), nullptr));
    if (!real) return {};
    struct stat info {};
    if (stat(real.get(), &info) != 0) return {};
    if (!S_ISDIR(info.st_mode)) {
        errno = ENOTDIR;
        return {};
    }
    return toWide(real.get());
}

/// The root as the user is to see it.
std::string givenText(const Options& options, const std::string& path, const std::wstring& real) {
    if (options.pathStyle == PathStyle::given) return path;
    std::string text = toBytes(real);
    if (options.pathStyle == PathStyle::absolute) return text;
    text = std::filesystem::path(text).lexically_relative(toBytes(realDirectory("."))).native();
    return text.starts_with('-') ? "./" + text : text;
}

/// "; did you mean ...?" for a PATH that begins with an unknown drive group, or nothing.
std::string meantGroup(const std::string& path) {
    const std::size_t end = path.find("::");
    if (!path.starts_with('$') || end == path.npos) return "";
    return suggestionText(path.substr(0, end + 2), wordsOfGroups());
}

/// A hint for users who give the name to find as a PATH, themselves or through the shell.
std::string remedy(const Options& options, const std::string& path, int error) {
    std::string quote = error == ENOTDIR ? expandedPatternHint(options) : "";
    if (!quote.empty()) return quote;
    const bool name = path.find_first_not_of('.') != path.npos;
    if (!name || path.find('/') != path.npos || path.starts_with('$')) return "";
    return "; a name to find goes with -n";
}

unsigned drivesOf(std::string_view group, DriveChoice choice) {
    if (group == "$other") return otherDrives;
    if (group == "$local" || (group.empty() && choice == DriveChoice::local)) return localDrives;
    if (group == "$remote" || (group.empty() && choice == DriveChoice::remote)) return remoteDrives;
    return allDrives;
}

void addRoot(std::vector<SearchRoot>& roots, SearchRoot added) {
    const auto same = [&added](const SearchRoot& root) { return root.real == added.real; };
    const auto known = std::find_if(roots.begin(), roots.end(), same);
    if (known == roots.end()) {
        roots.push_back(std::move(added));
    } else {
        known->drives |= added.drives;
    }
}

bool isInner(const SearchRoot& other, const SearchRoot& outer) {
    return other.real != outer.real && liesIn(other.real, outer.real);
}

/// Splits each root that has an inner one which searches fewer drives.
std::vector<SearchRoot> splitByDrives(const std::vector<SearchRoot>& roots) {
    std::vector<SearchRoot> split;
    for (const SearchRoot& root : roots) {
        const auto searchesLess = [&root](const SearchRoot& other) {
            return isInner(other, root) && other.drives != allDrives;
        };
        if (root.drives != allDrives || std::none_of(roots.begin(), roots.end(), searchesLess)) {
            split.push_back(root);
            continue;
        }
        for (const unsigned drives : {localDrives, remoteDrives}) {
            split.push_back(root);
            split.back().drives = drives;
            split.back().half = true;
        }
    }
    return split;
}

void findInnerRoots(std::vector<SearchRoot>& roots) {
    roots = splitByDrives(roots);
    for (SearchRoot& outer : roots)
        for (const SearchRoot& other : roots)
            if (isInner(other, outer) && (other.drives & outer.drives) == outer.drives)
                outer.inner.push_back(other.real);
}

}  // namespace

bool SearchRoot::owns(std::wstring_view directory) const {
    return std::none_of(inner.begin(), inner.end(), [directory](const std::wstring& other) {
        return liesIn(directory, other);
    });
}

std::string SearchRoot::shown(std::wstring_view directory) const {
    std::string text;
    appendShown(directory, text);
    return text;
}

void SearchRoot::appendShown(std::wstring_view directory, std::string& text) const {
    text += given;
    if (directory.size() <= real.size()) return;
    std::wstring_view below = directory.substr(real.size());
    if (below.starts_with(L'/')) below.remove_prefix(1);
    if (!given.ends_with('/')) text += '/';
    appendBytes(text, below);
}

/// The longest PATH that the text begins with is the one that reported the directory, as links
/// are not followed.
std::wstring SearchRoots::realOf(const std::string& shown) const {
    const SearchRoot* longest = nullptr;
    const auto covers = [&shown](const std::string& given) {
        return shown.starts_with(given) &&
               (shown.size() == given.size() || given.ends_with('/') || shown[given.size()] == '/');
    };
    for (const SearchRoot& root : roots)
        if (covers(root.given) && (!longest || root.given.size() > longest->given.size()))
            longest = &root;
    if (longest == nullptr) return toWide(shown);
    std::string below = shown.substr(longest->given.size());
    below.erase(0, below.find_first_not_of('/'));
    return below.empty() ? longest->real : joinedPath(longest->real, toWide(below));
}

SearchRoots SearchRoots::resolve(const Options& options) {
    SearchRoots result;
    if (options.pathStyle == PathStyle::relative && realDirectory(".").empty()) {
        complain("--relative: the current directory", errno);
        result.wrong = true;
        return result;
    }
    const std::vector<std::string> here = {"."};
    for (std::string path : options.paths.empty() ? here : options.paths) {
        const std::string_view group = takeDriveGroup(path).value_or("");
        if (path.empty() && !group.empty()) path = "/";
        std::wstring real = realDirectory(path);
        if (real.empty()) {
            const int error = errno;
            const bool wrong = error == ENOENT || error == ENOTDIR || error == ELOOP;
            complain(path + (error == ENOENT ? meantGroup(path) : "") + ": " +
                     std::strerror(error) + (wrong ? remedy(options, path, error) : ""));
            (wrong ? result.wrong : result.incomplete) = true;
            continue;
        }
        addRoot(
            result.roots,
            {givenText(options, path, real), drivesOf(group, options.drives), std::move(real), {}});
    }
    // Where one PATH is good, it is searched.
    if (result.wrong && !result.roots.empty()) {
        result.wrong = false;
        result.incomplete = true;
    }
    if (options.recurse) findInnerRoots(result.roots);
    return result;
}

// ---- Drives -----------------------------------------------------------------

namespace {

using fscanner::DriveInfo;

bool isChosen(const DriveInfo& drive, DriveChoice choice) {
    if (choice == DriveChoice::local) return drive.getType() == fscanner::DRIVE_LOCAL;
    return choice == DriveChoice::all || drive.getType() == fscanner::DRIVE_REMOTE;
}

}  // namespace

std::optional<DriveList> DriveList::read() {
    DriveList list;
    if (fscanner::fsListDrives(list.drives_)) return list;
    complain("the mount table cannot be read");
    return std::nullopt;
}

const DriveInfo* DriveList::of(std::wstring_view path) const {
    const DriveInfo* found = nullptr;
    std::size_t length = 0;
    for (const DriveInfo& drive : drives_) {
        const std::wstring_view directory = mountDirectory(drive);
        // Of several mounts on one directory the last hides the others.
        if (directory.size() < length || !liesIn(path, directory)) continue;
        found = &drive;
        length = directory.size();
    }
    return found;
}

bool DriveList::isMountPoint(std::wstring_view path) const {
    const DriveInfo* const drive = of(path);
    return drive != nullptr && mountDirectory(*drive) == path;
}

std::wstring_view mountDirectory(const DriveInfo& drive) {
    std::wstring_view name = drive.getName() != nullptr ? drive.getName() : L"";
    if (name.ends_with(L':')) name.remove_suffix(1);
    return name;
}

const char* typeName(fscanner::DriveType type) {
    if (type == fscanner::DRIVE_LOCAL) return "local";
    return type == fscanner::DRIVE_REMOTE ? "remote" : "other";
}

ExitStatus listDrives(const Options& options, Output& out) {
    const std::optional<DriveList> list = DriveList::read();
    if (!list) return ExitStatus::failure;

    std::vector<const DriveInfo*> chosen;
    std::size_t width = 0;
    for (const DriveInfo& drive : list->all()) {
        if (!isChosen(drive, options.drives)) continue;
        chosen.push_back(&drive);
        width = std::max(width, mountDirectory(drive).size());
    }
    for (const DriveInfo* drive : chosen) {
        const std::wstring_view directory = mountDirectory(*drive);
        out.writeForeign(toBytes(directory));
        out.write(
            fmt::format("{:{}}  {:6}  ", "", width - directory.size(), typeName(drive->getType())));
        out.writeForeign(toBytes(drive->getFileSystem()));
        out.write("\n");
    }
    return chosen.empty() ? ExitStatus::nothingFound : ExitStatus::found;
}

}  // namespace fscan
