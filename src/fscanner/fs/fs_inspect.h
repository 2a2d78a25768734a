#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fscanner/discovery/drive_info.h"
#include "fscanner/export.h"

namespace fscanner {

class FsFileInfo;

/// Appends every mounted file system to `drives`, in the mount table's order. Opens no
/// placeholder of an automounter, and leaves placeholders out. False if the mount table cannot
/// be read or memory runs out. Throws nothing.
FSCANNER_EXPORT bool fsListDrives(std::vector<DriveInfo>& drives);

/// How the library understands a criteria text.
struct FSCANNER_EXPORT FsCriteriaReport {
    bool compiles = false;             ///< whether a search accepts the text
    std::string error;                 ///< the error in one line; empty if the text compiles
    unsigned position = 0;             ///< position of the error, in characters from 0
    std::wstring tree;                 ///< the compiled tree, in one line
    std::vector<std::wstring> fields;  ///< the fields it reads, in order of appearance
    std::wstring indexField;           ///< the field whose index a cache uses for it, or empty
    std::wstring indexKey;             ///< the value that is looked up in that index
};

/// Compiles `criteria` over the fields of a search without running it. The index depends on
/// the case mode; the first form is case-sensitive.
FSCANNER_EXPORT FsCriteriaReport fsCheckCriteria(const wchar_t* criteria);
FSCANNER_EXPORT FsCriteriaReport fsCheckCriteria(const wchar_t* criteria, bool caseSensitive);

/// Tests records of the host against a criteria, as a scan does. Throws nothing. One thread
/// at a time for an object.
class FSCANNER_EXPORT FsRecordFilter {
public:
    /// Null if the criteria does not compile, or without memory. A null or empty criteria
    /// matches every record.
    static std::unique_ptr<FsRecordFilter> create(const wchar_t* criteria, bool caseSensitive);
    ~FsRecordFilter();
    /// Whether the record matches. Attributes that the criteria reads and the record does not
    /// know are fetched. False also if the test fails for lack of memory.
    bool matches(const FsFileInfo& record);
    /// Whether the criteria could not be evaluated on the last record. `matches` was false.
    bool undecided() const;

private:
    FSCANNER_HIDDEN FsRecordFilter();
    struct State;
    std::unique_ptr<State> state_;
};

/// Opens a directory that a search reported, to reach the files in it with `openat`,
/// `fstatat` or `fchdir`. The descriptor cannot list the directory. A symbolic link anywhere in
/// the path is refused (ELOOP): a user who may rename a directory of the path could otherwise
/// lead the host to another file.
///
/// Returns a descriptor that the caller closes; it is closed on exec. Returns -1, with errno
/// set, on failure. A null path gives EINVAL. Throws nothing. Any thread.
FSCANNER_EXPORT int fsOpenDirectory(const wchar_t* path);

/// Makes `path` absolute, removes ".", ".." and repeated "/", and resolves symbolic links.
/// `mayTouch` is called with the path of each component before the system is asked about it. A
/// component that it refuses, or that does not exist, counts as no link. A host can so keep
/// away from the mount of a dead server, where every call would block.
///
/// Returns an empty text, with errno set, for a null path, an empty function, too many links or
/// lack of memory. Throws nothing. Any thread.
FSCANNER_EXPORT std::wstring fsResolvePath(
    const wchar_t* path, const std::function<bool(const wchar_t* path)>& mayTouch);

/// Sets `description` to the output of the `file` program for the file, in the C locale,
/// without the path. False if there is no output, for a null path, and for a path of 1024
/// characters or more without long-path support. Throws nothing. Any thread.
///
/// One run of `file` describes all files of a directory. The descriptions are kept for this
/// thread's next calls.
FSCANNER_EXPORT bool fsFileType(const wchar_t* path, std::wstring& description);

/// Asks for the types of many files, as `fsFileType` does, but faster: from the second
/// directory on, one `file` process may be kept running until this object is destroyed. It is
/// a child of the host. Throws nothing. One thread at a time for an object.
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

/// The version of the library that is loaded, as "MAJOR.MINOR.PATCH". Static text.
FSCANNER_EXPORT const char* fsVersion();

}  // namespace fscanner
