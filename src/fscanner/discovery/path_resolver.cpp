#include "fscanner/discovery/path_resolver.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <map>
#include <string_view>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/platform/paths.h"

namespace fscanner {

namespace {

using Pairs = std::vector<PathDrive>;

/// Whether the path may lie on the drive, or the drive below the path, as far as a comparison
/// of their texts tells. For a recursive path `searched` ends in "/*". The texts are compared
/// without case and not by components, so `resolveOnDrive` decides.
bool textsMatch(const std::wstring& searched, const std::wstring& drive) {
    const unsigned length = static_cast<unsigned>(drive.size());
    if (wcsnvccmp(searched.c_str(), drive.c_str(), length, false) == 0) {
        debug("PathHelper::unix_path_resolver - tmpPathName (include) tmpDrive\n");
        return true;
    }
    debug("PathHelper::unix_path_resolver - tmpPathName (not include) tmpDrive\n");
    if (!wildcasecmp(searched.c_str(), drive.c_str(), false)) return false;
    debug("PathHelper::unix_path_resolver - tmpPathName (wild match) tmpDrive\n");
    return true;
}

}  // namespace

bool resolveText(const PathInfo& pathInfo, std::size_t driveLength, PathInfo& resolved,
                 PathInfo& parentResolved) {
    const std::wstring drive(pathInfo.getPathName(), driveLength);
    const std::wstring path(pathInfo.getPathName() + driveLength + 1);
    std::wstring searched = path;
    if (pathInfo.getRecursive()) searched += searched.ends_with(L'/') ? L"*" : L"/*";
    debug("PathHelper::unix_path_resolver - tmpPathName is '%ls'\n", searched.c_str());
    debug("PathHelper::unix_path_resolver - tmpDrive is '%ls'\n", drive.c_str());
    if (!textsMatch(searched, drive)) {
        debug("PathHelper::unix_path_resolver - errors found!\n");
        return false;
    }
    const std::wstring bare = PathHelper::buildResolvedPath(path.c_str());
    const std::wstring& parent = drive.size() > bare.size() ? drive : bare;
    resolved = PathInfo(path.c_str(), pathInfo.getRecursive());
    parentResolved = PathInfo(parent.c_str(), pathInfo.getRecursive());
    debug("PathHelper::unix_path_resolver - unixResolvedPathInfo is %ls\n", path.c_str());
    debug("PathHelper::unix_path_resolver - unixParentResolvedPathInfo is %ls\n", parent.c_str());
    return true;
}

namespace {

class Resolver {
public:
    Resolver(const std::vector<DriveInfo>& drives, const std::vector<PathInfo>& includedMounts,
             const std::vector<PathInfo>& excludedMounts)
        : drives_(drives) {
        for (const PathInfo& mount : excludedMounts) addMount(mount, false);
        for (const PathInfo& mount : includedMounts) addMount(mount, true);
    }

    void resolve(const PathEntry& entry);
    ResolvedPaths take() { return std::move(found_); }

private:
    bool canResolve(const PathEntry& entry) const;
    bool admits(const PathEntry& entry, const DriveInfo& drive) const;
    bool resolveOnDrive(const PathEntry& entry, const DriveInfo& drive, std::wstring_view location);
    void add(PathInfo path, const DriveInfo& drive, Pairs& list);
    void addMount(const PathInfo& mount, bool searched);
    bool isSearched(const wchar_t* path) const;

    const std::vector<DriveInfo>& drives_;
    // By mount point: whether the query's file systems allow it.
    std::map<std::wstring, bool, std::less<>> searched_;
    ResolvedPaths found_;  // in the order of the entries
};

void Resolver::resolve(const PathEntry& entry) {
    bool found = false;
    if (canResolve(entry)) {
        const int at = PathHelper::pathLocation(entry.path, drives_);
        const std::wstring_view location =
            at < 0 ? std::wstring_view()
                   : PathHelper::driveText(drives_[static_cast<unsigned>(at)]);
        for (std::size_t i = 0; i < drives_.size(); ++i) {
            if (!admits(entry, drives_[i])) continue;
            debug("PathHelper::pathResolver - driveList[%d] is '%ls'\n", static_cast<int>(i),
                  drives_[i].getName());
            found |= resolveOnDrive(entry, drives_[i], location);
        }
    }
    if (found) return;
    found_.unresolved.push_back({PathInfo(entry.text.c_str(), entry.recursive), DriveInfo()});
}

/// For an empty mask, which admits no drive, `isValidPath` is called for its log line.
bool Resolver::canResolve(const PathEntry& entry) const {
    if (!entry.valid || entry.path.empty()) return false;
    return entry.mask != 0 ||
           PathHelper::isValidPath(drives_, entry.mask, entry.path.c_str(), true);
}

bool Resolver::admits(const PathEntry& entry, const DriveInfo& drive) const {
    return (drive.getType() & entry.mask) != 0 && drive.getName() &&
           (entry.driveName.empty() || entry.driveName == drive.getName());
}

/// Adds the pair of this entry and drive to a list, if the path lies on the drive or the drive
/// below the path. False otherwise. Compares whole components.
bool Resolver::resolveOnDrive(const PathEntry& entry, const DriveInfo& drive,
                              std::wstring_view location) {
    const std::wstring_view mount = PathHelper::driveText(drive);
    const PathInfo text((std::wstring(mount) + L":" + entry.path).c_str(), entry.recursive);
    debug("PathHelper::unix_path_resolver - path to resolve is %ls\n", text.getPathName());
    PathInfo onDrive;
    PathInfo atMount;
    if (!resolveText(text, mount.size(), onDrive, atMount)) return false;
    if (mount == location) {
        add(std::move(onDrive), drive, found_.resolved);
        return true;
    }
    if (!entry.recursive || relatePaths(entry.path, mount) != PathRelation::AROUND) return false;
    add(std::move(atMount), drive, found_.parentResolved);
    return true;
}

void Resolver::add(PathInfo path, const DriveInfo& drive, Pairs& list) {
    (isSearched(path.getPathName()) ? list : found_.excluded).push_back({std::move(path), drive});
}

void Resolver::addMount(const PathInfo& mount, bool searched) {
    if (mount.getPathName())
        searched_[std::wstring(withoutFinalSeparator(mount.getPathName()))] = searched;
}

/// Whether the query's file systems allow the drive on which `path` lies; the innermost mount
/// point decides. Like `fileSystemPathChecker`, but mount points are names here, not patterns.
bool Resolver::isSearched(const wchar_t* path) const {
    bool searched = true;
    climb(path, [&](std::wstring_view directory) {
        const auto mount = searched_.find(directory);
        if (mount != searched_.end()) searched = mount->second;
        return mount != searched_.end();
    });
    return searched;
}

}  // namespace

ResolvedPaths resolvePaths(const std::vector<PathInfo>& paths, const std::vector<DriveInfo>& drives,
                           const std::vector<PathInfo>& includedMounts,
                           const std::vector<PathInfo>& excludedMounts, const LinkGuard& mayTouch) {
    Resolver resolver(drives, includedMounts, excludedMounts);
    for (const PathInfo& path : paths) {
        if (const auto entry = parsePathEntry(path, drives, mayTouch)) resolver.resolve(*entry);
    }
    return resolver.take();
}

// ---- Entries ----------------------------------------------------------------

namespace {

struct PathVariable {
    std::wstring_view name;
    std::wstring_view value;
    std::wstring_view extra;
};

/// The name that ends the table of variables. No variable is defined now.
constexpr std::wstring_view kLastVariable = L"__LAST_ENTRY__";
constexpr std::array<PathVariable, 1> kPathVariables = {{{kLastVariable, L"", L""}}};

const PathVariable* findVariable(std::wstring_view name) {
    for (const PathVariable& variable : kPathVariables) {
        if (variable.name == kLastVariable) break;
        if (variable.name == name) return &variable;
    }
    return nullptr;
}

std::wstring expandedVariables(std::wstring_view text) {
    std::wstring expanded;
    while (!text.empty()) {
        const std::size_t end = text.front() == L'%' ? text.find(L'%', 1) : text.npos;
        const std::wstring_view part = text.substr(0, end == text.npos ? 1 : end + 1);
        const PathVariable* variable =
            end == text.npos ? nullptr : findVariable(part.substr(1, end - 1));
        expanded += variable ? variable->value : part;
        text.remove_prefix(part.size());
    }
    return expanded;
}

struct DriveGroupWord {
    const wchar_t* word;
    DriveGroup mask;
};

constexpr std::array<DriveGroupWord, 4> kDriveGroups = {{{L"$local", mdLocalDriveGroup},
                                                         {L"$remote", mdRemoteDriveGroup},
                                                         {L"$all", mdAllDriveGroup},
                                                         {L"$other", mdOtherDriveGroup}}};

std::optional<unsigned> groupMask(const std::wstring& word) {
    for (const DriveGroupWord& group : kDriveGroups) {
        if (wcsvccmp(group.word, word.c_str(), false) == 0) return group.mask;
    }
    return std::nullopt;
}

bool isKnownMask(unsigned mask) {
    return std::any_of(kDriveGroups.begin(), kDriveGroups.end(),
                       [=](const DriveGroupWord& group) { return group.mask == mask; });
}

/// Splits `text` at the first `separator`. Returns the part before it and leaves the part after it
/// in `text`. Nothing if there is no separator.
std::optional<std::wstring> takePrefix(std::wstring& text, std::wstring_view separator) {
    const std::size_t at = text.find(separator);
    if (at == text.npos) return std::nullopt;
    std::wstring prefix = text.substr(0, at);
    text.erase(0, at + separator.size());
    return prefix;
}

bool isDriveName(const std::wstring& name, const std::vector<DriveInfo>& drives) {
    return std::any_of(drives.begin(), drives.end(), [&](const DriveInfo& drive) {
        return drive.getName() && name == drive.getName();
    });
}

/// The name of the drive that a prefix names, directly or by a path with symbolic links; or
/// empty.
std::wstring namedDrive(const std::wstring& word, const std::vector<DriveInfo>& drives) {
    if (isDriveName(word + L":", drives)) return word + L":";
    if (!word.starts_with(L'/')) return {};
    const std::wstring real = PathHelper::buildRealPath(word.c_str()) + L":";
    return isDriveName(real, drives) ? real : std::wstring();
}

/// Applies the drive prefix `word` + ":". A drive group there replaces the default media, or
/// narrows the given media.
void applyDrivePrefix(const std::wstring& word, bool mediaGiven,
                      const std::vector<DriveInfo>& drives, PathEntry& entry) {
    const std::wstring prefix = word + L":";
    if (const std::optional<unsigned> mask = groupMask(word)) {
        debug("PathHelper::pathResolver - '%ls' received on path: %ls\n", prefix.c_str(),
              entry.path.c_str());
        entry.mask = mediaGiven ? entry.mask & *mask : *mask;
    } else if (std::wstring name = namedDrive(word, drives); !name.empty()) {
        entry.driveName = std::move(name);
    } else if (word != L"*" && word != L"?") {
        debug("PathHelper::pathResolver - drive type [%ls] not supported!\n", prefix.c_str());
        entry.valid = false;
    }
}

/// The real path, or else the absolute path with its links, or else the text itself. Mount points
/// are not examined: they are no links, and a call on the mount of a dead server would block.
std::wstring realPathOf(const std::wstring& path, const std::vector<DriveInfo>& drives,
                        const LinkGuard& mayTouch) {
    const LinkGuard mayBeLink = [&](std::string_view bytes) {
        const std::wstring at = toWide(bytes);
        const bool isMountPoint = std::any_of(
            drives.begin(), drives.end(),
            [&at](const DriveInfo& drive) { return PathHelper::driveText(drive) == at; });
        return !isMountPoint && mayTouch(bytes);
    };
    const std::optional<std::string> real = resolvePath(toMultibyte(path), mayBeLink);
    return real ? toWide(*real) : PathHelper::realPath(path.c_str(), false).value_or(path);
}

}  // namespace

int expandPathVariables(const wchar_t* source, wchar_t* destination, unsigned limit) {
    if (!source || !*source || !destination || limit == 0) return -1;
    std::wstring expanded = expandedVariables(source);
    expanded.resize(std::min<std::size_t>(expanded.size(), limit - 1));
    std::wmemcpy(destination, expanded.c_str(), expanded.size() + 1);
    return 0;
}

std::wstring realPathOf(const PathInfo& entry, const LinkGuard& mayTouch) {
    std::wstring path = entry.getPathName() ? entry.getPathName() : L"";
    takePrefix(path, L"::");
    takePrefix(path, L":");
    return path.empty() ? path : realPathOf(path, {}, mayTouch);
}

std::optional<PathEntry> parsePathEntry(const PathInfo& info, const std::vector<DriveInfo>& drives,
                                        const LinkGuard& mayTouch) {
    if (!info.getPathName() || !*info.getPathName()) return std::nullopt;
    PathEntry entry;
    // A text of any length: cut, it would lead to another place. The walk refuses what is too long.
    entry.text = expandedVariables(info.getPathName());
    entry.path = entry.text;
    entry.recursive = info.getRecursive();
    const std::optional<std::wstring> media = takePrefix(entry.path, L"::");
    const std::wstring mediaWord = media.value_or(L"$local");
    entry.knownMedia = groupMask(mediaWord).has_value();
    entry.mask = groupMask(mediaWord).value_or(mdOtherDriveGroup);
    debug("PathHelper::pathResolver - media: %ls, pathName: %ls, recursive: %s\n",
          mediaWord.c_str(), entry.path.c_str(), entry.recursive ? "true" : "false");
    if (const std::optional<std::wstring> drive = takePrefix(entry.path, L":")) {
        debug("PathHelper::pathResolver - pathName without driver: %ls\n", entry.path.c_str());
        applyDrivePrefix(*drive, media.has_value(), drives, entry);
    }
    if (!isKnownMask(entry.mask)) {
        // Not reached by the groups of the table: each intersection of two is a known mask.
        debug("PathHelper::pathResolver - media type [%ls] not supported!\n", mediaWord.c_str());
        entry.valid = false;
    }
    if (entry.valid && !entry.path.empty()) {
        entry.path = realPathOf(entry.path, drives, mayTouch);
        debug("PathHelper::pathResolver - real pathName is: %ls\n", entry.path.c_str());
    }
    return entry;
}

// ---- Lists of patterns ------------------------------------------------------

bool checkPathList(const wchar_t* path, const std::vector<PathInfo>& list, bool caseFlag,
                   bool recursiveOnly) {
    for (const PathInfo& entry : list) {
        if (!entry.getPathName() || (recursiveOnly && !entry.getRecursive())) continue;
        if (wildvcpathcmp(entry.getPathName(), path, entry.getRecursive(), caseFlag)) return true;
    }
    return false;
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

namespace {

/// `entryAt(i)` is the i-th entry, or null when it takes no part.
template <typename EntryAt>
int longestMatch(const wchar_t* path, std::size_t count, EntryAt entryAt, bool caseFlag) {
    int index = -1;
    std::size_t longest = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const PathInfo* entry = entryAt(i);
        if (!entry || !entry->getPathName()) continue;
        const std::size_t length = std::wcslen(entry->getPathName());
        if (index >= 0 && length <= longest) continue;
        if (!wildvcpathcmp(entry->getPathName(), path, entry->getRecursive(), caseFlag)) continue;
        index = static_cast<int>(i);
        longest = length;
    }
    return index;
}

}  // namespace

int checkPathListEx(const wchar_t* path, const std::vector<PathInfo>& list, bool caseFlag) {
    return longestMatch(
        path, list.size(), [&](std::size_t i) { return &list[i]; }, caseFlag);
}

int checkPathDriveListEx(const wchar_t* path, const std::vector<PathDrive>& list, unsigned typeMask,
                         bool caseFlag) {
    const auto pairAt = [&](std::size_t i) {
        return (list[i].drive.getType() & typeMask) != 0 ? &list[i].path : nullptr;
    };
    return longestMatch(path, list.size(), pairAt, caseFlag);
}

}  // namespace fscanner
