#pragma once

#include <vector>

#include "fscanner/common/utf8.h"
#include "fscanner/discovery/drivehelper.h"
#include "fscanner/discovery/mountlist.h"
#include "fscanner/discovery/pathhelper.h"
#include "support/log_capture.h"
#include "support/temporary_directory.h"

namespace fscanner {

/// Makes `text` the mount table during its lifetime.
class PastedMountTable {
public:
    explicit PastedMountTable(const std::string& text) {
        writeWholeFile(directory_ / "mtab", text);
        setMountTablePath((directory_ / "mtab").c_str());
    }
    ~PastedMountTable() { setMountTablePath(nullptr); }

private:
    TemporaryDirectory directory_;
};

/// Collects the debug log during its lifetime.
struct DebugLog : LogCapture {
    bool has(const std::string& line) const {
        return ("\n" + text()).find("\n" + line + "\n") != std::string::npos;
    }
};

inline std::vector<MountEntry> mountsOf(const std::string& table) {
    std::vector<MountEntry> mounts;
    parseMountTable(table, mounts);
    return mounts;
}

inline std::vector<DriveInfo> drivesOf(const std::string& table, unsigned mask = 31) {
    std::vector<DriveInfo> drives;
    DriveHelper::buildDriveList(mountsOf(table), mask, drives);
    return drives;
}

inline std::vector<DriveInfo> normalisedDrivesOf(const std::string& table) {
    std::vector<DriveInfo> drives = drivesOf(table);
    normaliseDriveList(drives);
    return drives;
}

/// "TYPE NAME FILESYSTEM".
inline std::string show(const DriveInfo& drive) {
    return std::to_string(drive.getType()) + " " + toMultibyte(drive.getName()) + " " +
           toMultibyte(drive.getFileSystem());
}

/// The text, with a "+" behind it when recursive.
inline std::string show(const PathInfo& path) {
    return toMultibyte(path.getPathName()) + (path.getRecursive() ? "+" : "");
}

/// "PATH on DRIVE-TEXT", or the path alone where there is no drive.
inline std::string show(const PathDrive& pair) {
    if (!pair.drive.getName()) return show(pair.path);
    return show(pair.path) + " on " + toMultibyte(PathHelper::driveText(pair.drive));
}

template <typename T>
std::vector<std::string> show(const std::vector<T>& list) {
    std::vector<std::string> texts;
    for (const T& element : list) texts.push_back(show(element));
    return texts;
}

/// Entries as `show` writes them.
inline std::vector<PathInfo> pathsOf(const std::vector<std::string>& texts) {
    std::vector<PathInfo> paths;
    for (const std::string& text : texts) {
        const bool recursive = text.ends_with('+');
        paths.emplace_back(toWide(text.substr(0, text.size() - recursive)).c_str(), recursive);
    }
    return paths;
}

using FileSystemNames = std::vector<const wchar_t*>;

/// The entries of a search, resolved.
struct ResolvedSearch {
    /// `drives` are all drives, normalised.
    ResolvedSearch(const std::vector<DriveInfo>& drives, const std::vector<std::string>& entries,
                   const FileSystemNames& includedFileSystems = {},
                   const FileSystemNames& excludedFileSystems = {}) {
        std::vector<DriveInfo> searched;
        DriveHelper::fileSystemDriveListPruning(
            drives, searched, {includedFileSystems.begin(), includedFileSystems.end()},
            {excludedFileSystems.begin(), excludedFileSystems.end()});
        std::vector<PathInfo> all, included, others;
        PathHelper::buildPathList(drives, all);
        PathHelper::buildPathList(searched, included);
        PathHelper::differencePathList(all, included, others);
        PathHelper::pathResolver(pathsOf(entries), searched, included, others, parent, resolved,
                                 excluded, unresolved);
        PathHelper::accumulatePairs(drives, parent, resolved, pairs);
    }

    std::vector<PathDrive> parent, resolved, excluded, unresolved, pairs;
};

}  // namespace fscanner
