#pragma once

#include "fscanner/export.h"

namespace fscanner {

class FsConfig;
class FsMonitor;
class FsProvider;

/// Loads plug-ins: the file BASENAME.so in the directory that the key "home" of
/// section "fscanner" names. The file has to be trustworthy (see
/// docs/configuration.md); the debug log says why one was not loaded.
///
/// What is loaded stays loaded. Null on any failure, as for a null name or configuration;
/// the caller owns the result.
/// The plug-in must not keep `config`.
class FSCANNER_EXPORT FsLoader {
public:
    /// The plug-in's provider, or its monitor; see above.
    static FsProvider* loadFsProvider(const char* baseName, const FsConfig* config);
    static FsMonitor* loadFsMonitor(const char* baseName, const FsConfig* config);
};

}  // namespace fscanner
