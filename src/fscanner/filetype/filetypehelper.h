#pragma once

/// File types, as the system's `file` program tells them. `FileTypeChecker` is the interface.
/// `DirectoryTypes` gets the types of a whole directory and keeps them in a `FileTypeCache`.
/// file_program and child_process run the program and split its output.

#include <optional>
#include <string>
#include <vector>

#include "fscanner/common/strings.h"
#include "fscanner/filetype/child_process.h"
#include "fscanner/filetype/directory_types.h"
#include "fscanner/filetype/file_type_cache.h"

namespace fscanner {

/// Checks the types of files by the words of their descriptions ("ELF", "ASCII",
/// "directory").
///
/// `file` is run without a shell, in the C locale, and for a whole directory at once.
/// From the second directory on it may be kept running as long as this object lives. The
/// answers about the other files of a directory are cached per thread, each for one
/// question. The description of a link contains its target; those words count too. All
/// functions return false for a null path, after a failure and for an unknown type; the
/// latter two also write a line to the debug log. One thread at a time for an object.
class FileTypeChecker {
public:
    FileTypeChecker();
    // The list file's name is made from the object's address, so a copy would share it.
    FileTypeChecker(const FileTypeChecker&) = delete;
    FileTypeChecker& operator=(const FileTypeChecker&) = delete;

    /// Whether the file's description has a word in common with an entry of `wanted`,
    /// case-sensitive. An empty list matches every file.
    bool check(const wchar_t* path, StringList<wchar_t>& wanted);

    /// The line "path: description". Nothing for a file whose type cannot be told, and for a
    /// path beyond `longestPath`.
    std::optional<std::wstring> typeLine(const wchar_t* path);

    /// Appends the words of `text`, which " ", "," and ":" separate. False when there are
    /// none.
    static bool fileTypeSplitter(const wchar_t* text, StringList<wchar_t>& words);
    /// Whether a word of any entry of `wanted` is one of `fileWords`.
    static bool checkTypeList(StringList<wchar_t>& fileWords, StringList<wchar_t>& wanted);

    // ---- Offered to hosts; nothing in fscanner uses what follows ------------

    /// `check` for the file `name` of the directory `dir`.
    bool check(const wchar_t* dir, const wchar_t* name, StringList<wchar_t>& wanted);
    /// Checks the files `names` of the directory `dir` in one run, without the caches.
    /// `matched` gets one result for each. False, and all results are false, when the
    /// directory cannot be read.
    bool check(const wchar_t* dir, StringList<wchar_t>& names, StringList<wchar_t>& wanted,
               std::vector<bool>& matched);
    /// Checks by descriptions that the caller has got already: `dataBuffer` holds lines
    /// "path: description". The words of the description are appended to `fileWords`.
    bool check(const wchar_t* pathFileName, wchar_t* dataBuffer, StringList<wchar_t>& fileWords,
               StringList<wchar_t>& wanted);
    /// The same for the file `name` of the directory `dir`.
    bool check(const wchar_t* dir, const wchar_t* name, wchar_t* dataBuffer,
               StringList<wchar_t>& fileWords, StringList<wchar_t>& wanted);
    /// The same for a path, with the lines in the file `dataFile`.
    bool check(const wchar_t* pathFileName, const wchar_t* dataFile, StringList<wchar_t>& fileWords,
               StringList<wchar_t>& wanted);
    /// Stores `typeLine` in `*info`; the caller releases it with `free`. False, and `*info` is
    /// unchanged, when there is none.
    bool getFileTypeEx(const wchar_t* path, wchar_t** info);
    /// The same by way of a list file in the current directory. Directories and names
    /// with a newline have no type then.
    bool getFileTypeEx_2(const wchar_t* path, wchar_t** info);
    /// The same with a run for this file alone.
    bool getFileType(const wchar_t* path, wchar_t** info);

private:
    std::string commandFile_;
    RunningFile running_;
};

}  // namespace fscanner
