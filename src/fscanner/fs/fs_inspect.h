#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fscanner/discovery/drive_info.h"
#include "fscanner/export.h"

namespace fscanner {

class FsFileInfo;

/// Appends every mounted file system, in the mount table's order. False when the
/// mount table cannot be read.
FSCANNER_EXPORT bool fsListDrives(std::vector<DriveInfo>& drives);

/// What the library makes of a criteria text.
struct FSCANNER_EXPORT FsCriteriaReport {
    bool compiles = false;             ///< whether it can be searched with
    std::string error;                 ///< what is wrong, in one line; empty when it compiles
    unsigned position = 0;             ///< where: index into the text, in characters
    std::wstring tree;                 ///< the compiled tree, in one line
    std::vector<std::wstring> fields;  ///< the fields it reads, in order of appearance
    std::wstring indexField;           ///< the field whose index in a cache serves it, or empty
    std::wstring indexKey;             ///< the value that this field must have
};

/// Compiles `criteria` over the fields of a search without running it. Which index serves
/// it depends on the case mode, case-sensitive unless it is given.
FSCANNER_EXPORT FsCriteriaReport fsCheckCriteria(const wchar_t* criteria);
FSCANNER_EXPORT FsCriteriaReport fsCheckCriteria(const wchar_t* criteria, bool caseSensitive);

/// Tests records that a host holds against a criteria, the way a scan does.
class FSCANNER_EXPORT FsRecordFilter {
public:
    /// Null when the criteria does not compile. A null or empty text matches all.
    static std::unique_ptr<FsRecordFilter> create(const wchar_t* criteria, bool caseSensitive);
    ~FsRecordFilter();
    bool matches(const FsFileInfo& record);
    /// Whether the criteria had no answer for the last record, which did not match then.
    bool undecided() const;

private:
    FSCANNER_HIDDEN FsRecordFilter();
    struct State;
    std::unique_ptr<State> state_;
};

/// Opens a directory that a search reported, to reach the files in it: for `openat`,
/// `fstatat` or `fchdir`, not to be listed. A symbolic link anywhere in the path is
/// refused (ELOOP): whoever may rename a directory on the way could lead the host
/// elsewhere. The descriptor is closed on exec and belongs to the caller; -1, with errno,
/// on failure. A null path gives EINVAL. Any thread.
FSCANNER_EXPORT int fsOpenDirectory(const wchar_t* path);

/// An absolute path, without ".", ".." and repeated "/", of which the links are resolved. Before
/// the file system looks at the path of a component, `mayTouch` is asked; what it refuses, and
/// what is not there, counts as no link. A mount of a dead server, for one, answers nobody who
/// touches it. Empty, with errno, for null, an empty function, too many links or no memory.
/// Any thread; nothing throws.
FSCANNER_EXPORT std::wstring fsResolvePath(
    const wchar_t* path, const std::function<bool(const wchar_t* path)>& mayTouch);

/// Sets `description` to what the `file` program says of the file, in the C locale.
/// False where it says nothing; a path of 1024 characters or more has no type without
/// long-path support. The directory's other files are described at the same time, for the calls to
/// come of this thread.
FSCANNER_EXPORT bool fsFileType(const wchar_t* path, std::wstring& description);

/// Asks for the types of many files, as `fsFileType` does. From the second directory on
/// a `file` may be kept running, a child of the host, until this object goes; that is
/// faster. Nothing throws. One thread at a time for an object.
class FSCANNER_EXPORT FsFileTypes {
public:
    FsFileTypes() noexcept;
    FsFileTypes(const FsFileTypes&) = delete;
    FsFileTypes& operator=(const FsFileTypes&) = delete;
    ~FsFileTypes();
    /// As `fsFileType`.
    bool describe(const wchar_t* path, std::wstring& description);

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// "MAJOR.MINOR.PATCH" of the library at run time; static.
FSCANNER_EXPORT const char* fsVersion();

}  // namespace fscanner
