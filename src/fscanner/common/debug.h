#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// The debug log: one process-wide trace file, off until a host starts it.
///
/// Each line opens the file, appends and closes it, so that the log is whole
/// on disk after a crash. No lock is taken; nothing is added to a line.

/// Creates or empties the file `path` (shorter than 1024 bytes) and switches
/// logging on. On null, a longer path or a file that cannot be made: logging
/// is off, the path is forgotten, and the result is false.
FSCANNER_EXPORT bool startDebug(const char* path);

/// Switches logging on again if a path is set, without emptying the file.
/// Returns whether logging is on now.
FSCANNER_EXPORT bool startDebug();

/// Switches logging off and keeps the path for `startDebug()`.
FSCANNER_EXPORT void stopDebug();

/// Appends one formatted text; the caller writes the "\n". "%S" and "%ls"
/// take wide strings, which reach the file whole in every locale, with "(null)"
/// for null; write "%ls" in code, as ISO C++ does not know "%S". With logging off
/// this costs a flag test. A file that cannot be opened loses the line. `errno`
/// is kept.
FSCANNER_EXPORT void debug(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Whether logging is on: ask before preparing an argument that costs anything.
FSCANNER_EXPORT extern bool debugInfo;

/// The log file's path, empty when none is set. Not for hosts.
extern char debugFile[1024];

}  // namespace fscanner
