#include "fscan/query/drives.h"

#include <fmt/format.h>

#include <algorithm>

#include "fscan/options/options.h"
#include "fscan/output/messages.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/text/paths.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

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
