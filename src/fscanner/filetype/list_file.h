#pragma once

#include <optional>
#include <string>
#include <vector>

namespace fscanner {

/// Writes the paths dir + "/" + name of the directory's entries to `listFile`, one a
/// line: all but directories, hidden files and links included. Returns the number
/// of lines; -1, and no file is left, when the list cannot be made.
///
/// The file must not exist yet and is its owner's alone. A name with a newline
/// cannot stand in a list of lines and is left out.
int makeListFile(const char* dir, const char* listFile);

/// The same, returning the paths that were written.
std::optional<std::vector<std::string>> writeListFile(const char* dir, const char* listFile);

}  // namespace fscanner
