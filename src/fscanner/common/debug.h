#pragma once

#include "fscanner/export.h"

namespace fscanner {

/// The debug log: one process-wide trace file, off until a host starts it.
///
/// Each line opens the file, appends and closes it, so that a crash loses no
/// line. The line is written as the caller formats it: no time and no prefix is
/// added.
///
/// Threads: `debug` may be called by several threads at once; it takes no lock,
/// and each line is one write. Call `startDebug` and `stopDebug` only while no
/// other thread uses the library.

/// Creates or empties the file `path` and switches logging on. `path` has at
/// most 1023 bytes and is copied. False for null, for a longer path, and when the
/// file cannot be created: logging is off then, and no path is set.
FSCANNER_EXPORT bool startDebug(const char* path);

/// Switches logging on again with the path of the last `startDebug(path)`; the
/// file keeps its content. False, and logging is off, when no path is set.
FSCANNER_EXPORT bool startDebug();

/// Switches logging off and keeps the path for `startDebug()`. Does nothing when
/// logging is off.
FSCANNER_EXPORT void stopDebug();

/// Appends one line, formatted as by `printf`; the caller writes the "\n".
///
/// "%ls" and "%S" take wide strings and write them in full in every locale; a
/// null string is written as "(null)". Prefer "%ls", as ISO C++ does not define
/// "%S". `format` must not be null. With logging off the call costs one flag
/// test. When the file cannot be opened, or memory runs out, the line is lost
/// without an error. `errno` keeps its value.
FSCANNER_EXPORT void debug(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Whether logging is on. Test it before you compute an argument that takes time.
/// Hosts read it only; `startDebug` and `stopDebug` set it.
FSCANNER_EXPORT extern bool debugInfo;

/// The log file's path; empty when none is set. Not exported to hosts.
extern char debugFile[1024];

}  // namespace fscanner
