#pragma once

/// File types by the system's `file` program. `FileTypeChecker` asks; a directory's answers
/// (directory_types) wait in a `FileTypeCache`; the program is run, and its output cut, by
/// file_program, running_file and child_process.

#include <optional>
#include <string>
#include <vector>

#include "fscanner/common/strings.h"
#include "fscanner/filetype/directory_types.h"
#include "fscanner/filetype/file_type_cache.h"
#include "fscanner/filetype/running_file.h"

namespace fscanner {

/// Tells whether files are of given kinds, by the words in which `file` describes
/// them ("ELF", "ASCII", "directory").
///
/// `file` is run without a shell, in the C locale, and for a whole directory at
/// once; from the second directory on it may be kept running, as long as this object
/// lives. The answers for a directory's other files wait in the thread, each for one
/// question. The words of a description that repeat a link's target
/// count like any other. A failure or an unknown type is false, with a line in
/// the debug log. Null paths are false. One thread at a time for an object.
class FileTypeChecker {
public:
    FileTypeChecker();
    // The list file's name stands for this very object.
    FileTypeChecker(const FileTypeChecker&) = delete;
    FileTypeChecker& operator=(const FileTypeChecker&) = delete;

    /// Whether the file has a word in common with any entry of `wanted`,
    /// case-sensitive. An empty list is matched by everything.
    bool check(const wchar_t* path, StringList<wchar_t>& wanted);

    /// The line "path: description". Nothing for a file whose type cannot be told, and for a
    /// path beyond `longestPath`.
    std::optional<std::wstring> typeLine(const wchar_t* path);

    /// Appends the words between runs of " ", "," and ":"; false when there are none.
    static bool fileTypeSplitter(const wchar_t* text, StringList<wchar_t>& words);
    /// Whether a word of any entry of `wanted` is one of `fileWords`.
    static bool checkTypeList(StringList<wchar_t>& fileWords, StringList<wchar_t>& wanted);

    // ---- Offered to hosts; nothing in fscanner uses what follows ------------

    /// `check` for the file `name` of the directory `dir`.
    bool check(const wchar_t* dir, const wchar_t* name, StringList<wchar_t>& wanted);
    /// Checks the files `names` of the directory `dir` in one go, past the caches:
    /// `matched` gets one verdict for each. False when the directory cannot be
    /// read; all verdicts are false then.
    bool check(const wchar_t* dir, StringList<wchar_t>& names, StringList<wchar_t>& wanted,
               std::vector<bool>& matched);
    /// Checks against descriptions that the caller has: `dataBuffer` holds lines
    /// "path: description". The description's words are appended to `fileWords`.
    bool check(const wchar_t* pathFileName, wchar_t* dataBuffer, StringList<wchar_t>& fileWords,
               StringList<wchar_t>& wanted);
    /// The same for the file `name` of the directory `dir`.
    bool check(const wchar_t* dir, const wchar_t* name, wchar_t* dataBuffer,
               StringList<wchar_t>& fileWords, StringList<wchar_t>& wanted);
    /// The same for a path, with the lines in the file `dataFile`.
    bool check(const wchar_t* pathFileName, const wchar_t* dataFile, StringList<wchar_t>& fileWords,
               StringList<wchar_t>& wanted);
    /// `typeLine` in `*info`, released with `free`.
    bool getFileTypeEx(const wchar_t* path, wchar_t** info);
    /// The same through a list file in the current directory: directories and names
    /// with a newline are unknown to it.
    bool getFileTypeEx_2(const wchar_t* path, wchar_t** info);
    /// The same for one file alone, by a run of its own.
    bool getFileType(const wchar_t* path, wchar_t** info);

private:
    std::string commandFile_;
    RunningFile running_;
};

}  // namespace fscanner
