#pragma once

#include <string>
#include <vector>

namespace fscan {

/// A file as a row shows it: "f", "1.5K", "2026-11-21 07:30"; "?" and blanks where it is gone.
struct FileRow {
    std::string kind, size, modified;
};
FileRow describe(const std::string& path);

/// The first lines of a text file, escaped; or a word on why there are none. Waits for nobody.
std::vector<std::string> previewOf(const std::string& path, std::size_t lines);

}  // namespace fscan
