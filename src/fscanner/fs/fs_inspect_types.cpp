#include <cwchar>

#include "fscanner/common/heap_string.h"
#include "fscanner/filetype/filetypehelper.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/wall.h"

namespace fscanner {

struct FsFileTypes::State {
    FileTypeChecker checker;
};

FsFileTypes::FsFileTypes() noexcept = default;
FsFileTypes::~FsFileTypes() = default;

bool FsFileTypes::describe(const wchar_t* path, std::wstring& description) {
    return behindWall("FsFileTypes::describe", [&] {
        if (!state_) state_ = std::make_unique<State>();
        wchar_t* info = nullptr;
        if (!path || !state_->checker.getFileTypeEx(path, &info)) return false;
        const HeapText line(info);
        // "PATH: DESCRIPTION"
        const std::size_t before = std::wcslen(path) + 1;
        description = std::wcslen(info) > before ? info + before : L"";
        description.erase(0, description.find_first_not_of(L' '));
        return !description.empty();
    });
}

bool fsFileType(const wchar_t* path, std::wstring& description) {
    return FsFileTypes().describe(path, description);
}

}  // namespace fscanner
