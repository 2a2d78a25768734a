// The functions of the public header for drives, paths and file types. The functions for
// criteria need the engine: fsCheckCriteria is in engine/reports.cpp, FsRecordFilter in
// engine/file_processor.cpp.

#include "fscanner/fs/fs_inspect.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cwchar>
#include <new>

#include "fscanner/common/utf8.h"
#include "fscanner/discovery/drivehelper.h"
#include "fscanner/filetype/filetypehelper.h"
#include "fscanner/fs/no_throw.h"
#include "fscanner/platform/directory.h"
#include "fscanner/platform/paths.h"
#include "fscanner/version.h"

namespace fscanner {

bool fsListDrives(std::vector<DriveInfo>& drives) {
    try {
        const std::optional<MountTable> table = readMountTable();
        if (!table) return false;
        // Placeholders are not opened, because a listing must not wait for an automounter.
        for (DriveInfo& drive : listMountedDrives(*table))
            if (!isPlaceholder(drive)) drives.push_back(std::move(drive));
        addMissingRoot(drives);
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

int fsOpenDirectory(const wchar_t* path) {
    errno = path ? ENOMEM : EINVAL;
    if (!path) return -1;
    return noThrow("::fsOpenDirectory", -1, [path] {
        return openDirectoryWithoutLinks(toMultibyte(path).c_str(), DirectoryUse::reach).release();
    });
}

std::wstring fsResolvePath(const wchar_t* path,
                           const std::function<bool(const wchar_t* path)>& mayTouch) {
    errno = EINVAL;
    if (!path || !mayTouch) return {};
    return noThrow("::fsResolvePath", std::wstring(), [&] {
        const auto isLink = [&](std::string_view bytes) {
            struct stat info {};
            return mayTouch(toWide(bytes).c_str()) &&
                   lstat(std::string(bytes).c_str(), &info) == 0 && S_ISLNK(info.st_mode);
        };
        return toWide(resolvePath(toMultibyte(path), isLink).value_or(""));
    });
}

struct FsFileTypes::State {
    FileTypeChecker checker;
};

FsFileTypes::FsFileTypes() noexcept = default;
FsFileTypes::~FsFileTypes() = default;

bool FsFileTypes::describe(const wchar_t* path, std::wstring& description) {
    return noThrow("FsFileTypes::describe", [&] {
        if (!state_) state_ = std::make_unique<State>();
        const std::optional<std::wstring> line = state_->checker.typeLine(path);
        if (!line) return false;
        // The line is "PATH: DESCRIPTION".
        description = line->substr(std::min(std::wcslen(path) + 1, line->size()));
        description.erase(0, description.find_first_not_of(L' '));
        return !description.empty();
    });
}

bool fsFileType(const wchar_t* path, std::wstring& description) {
    return FsFileTypes().describe(path, description);
}

const char* fsVersion() {
    return FSCANNER_VERSION;
}

}  // namespace fscanner
