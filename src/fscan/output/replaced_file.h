#pragma once

#include <string>
#include <string_view>

namespace fscan {

/// Writes a file that takes the place of the one at `path`, if any, when it is whole: nobody sees a
/// part of it. What is no regular file, such as a pipe, is written to. An errno, 0 on success; then
/// what was there before stays.
int replaceFile(const std::string& path, std::string_view content);

}  // namespace fscan
