#pragma once

namespace fscanner {

class FsConfig;

/// The names of the factories that plug-ins export.
extern const char* createProviderSymbol;
extern const char* createMonitorSymbol;

/// Writes the file name of the plug-in `baseName` to `out`: the configured "home", "/",
/// `baseName`, ".so". Returns 0. Returns -1 and leaves `out` as it is if `baseName` is null or
/// empty, or if the file name and its terminator do not fit in `outSize` bytes.
int adjustDynamicLibraryName(char* out, unsigned int outSize, const char* baseName,
                             const FsConfig* config);

/// Opens a plug-in, if no other user may change it, and returns the address of `symbol`, or
/// null. `handleOut` (may be null) is set to the library's handle, or to null if null is
/// returned. The library stays loaded, even if it lacks the symbol.
void* loadLibraryAndFactory(const char* baseName, const FsConfig* config, const char* symbol,
                            void** handleOut);

}  // namespace fscanner
