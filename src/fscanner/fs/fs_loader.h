#pragma once

#include "fscanner/export.h"

namespace fscanner {

class FsConfig;
class FsMonitor;
class FsProvider;

/// Loads plug-ins. A plug-in is the file BASENAME.so in the directory that the key "home" of
/// the section "fscanner" names. No other user may be able to change the file (see
/// docs/configuration.md).
///
/// Both functions return a new object that the caller owns and deletes. They return null on
/// any failure, also for a null name or configuration; the debug log says why. They throw
/// nothing. A loaded plug-in stays loaded until the process ends. `config` is passed to the
/// plug-in, which must not keep it.
class FSCANNER_EXPORT FsLoader {
public:
    /// Creates the plug-in's provider.
    static FsProvider* loadFsProvider(const char* baseName, const FsConfig* config);
    /// Creates the plug-in's monitor.
    static FsMonitor* loadFsMonitor(const char* baseName, const FsConfig* config);
};

}  // namespace fscanner
