#pragma once

#include <cstdarg>
#include <string>

namespace fscanner {

/// Formats like `vsnprintf`, but wide arguments ("%S", "%ls", "%C", "%lc") are
/// converted here: libc gives the whole text up at the first wide character that
/// the locale cannot encode. Widths and precisions count bytes; a precision never
/// cuts a character in two. "%n" stores nothing, and positional arguments ("%1$s")
/// are left as they stand. Throws `std::bad_alloc`.
std::string formatText(const char* format, std::va_list arguments);

}  // namespace fscanner
