#include "fscanner/discovery/path_entry.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <string_view>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
#include "fscanner/discovery/pathhelper.h"
#include "fscanner/platform/paths.h"
#include "fscanner/platform/real_path.h"

namespace fscanner {

namespace {

/// Room for the text of an entry and its terminator. A text beyond `longestPath` is not cut: it
/// would lead to another place. The walk refuses it.
std::size_t entryRoom(const PathInfo& info) {
    return (info.getPathName() ? std::wcslen(info.getPathName()) : 0) + 1;
}

struct PathVariable {
    std::wstring_view name;
    std::wstring_view value;
    std::wstring_view extra;
};

/// The name that ends the table of variables. No variable is defined now.
constexpr std::wstring_view lastVariable = L"__LAST_ENTRY__";
constexpr std::array<PathVariable, 1> pathVariables = {{{lastVariable, L"", L""}}};

const PathVariable* findVariable(std::wstring_view name) {
    for (const PathVariable& variable : pathVariables) {
        if (variable.name == lastVariable) break;
        if (variable.name == name) return &variable;
    }
    return nullptr;
}

struct DriveGroupWord {
    const wchar_t* word;
    DriveGroup mask;
};

constexpr std::array<DriveGroupWord, 4> driveGroups = {{{L"$local", mdLocalDriveGroup},
                                                        {L"$remote", mdRemoteDriveGroup},
                                                        {L"$all", mdAllDriveGroup},
                                                        {L"$other", mdOtherDriveGroup}}};

std::optional<unsigned> groupMask(const std::wstring& word) {
    for (const DriveGroupWord& group : driveGroups) {
        if (wcsvccmp(group.word, word.c_str(), false) == 0) return group.mask;
    }
    return std::nullopt;
}

bool isKnownMask(unsigned mask) {
    return std::any_of(driveGroups.begin(), driveGroups.end(),
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
    std::wstring_view rest(source);
    std::wstring expanded;
    while (!rest.empty() && expanded.size() < limit) {
        const std::size_t end = rest.front() == L'%' ? rest.find(L'%', 1) : rest.npos;
        const std::wstring_view part = rest.substr(0, end == rest.npos ? 1 : end + 1);
        const PathVariable* variable =
            end == rest.npos ? nullptr : findVariable(part.substr(1, end - 1));
        expanded += variable ? variable->value : part;
        rest.remove_prefix(part.size());
    }
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
    const auto room = static_cast<unsigned>(entryRoom(info));
    std::vector<wchar_t> text(room);
    if (expandPathVariables(info.getPathName(), text.data(), room) != 0) {
        return std::nullopt;
    }
    PathEntry entry;
    entry.text = text.data();
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

}  // namespace fscanner
