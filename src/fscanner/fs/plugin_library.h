#pragma once

namespace fscanner {

class FsConfig;

/// The names of the factories that plug-ins export.
extern const char* createProviderSymbol;
extern const char* createMonitorSymbol;

/// Writes the file name of the plug-in `baseName` to `out`: the configured "home",
/// "/", the name, ".so". 0, or -1 with `out` untouched when there is no name or it
/// does not fit in `outSize` bytes with its terminator.
int adjustDynamicLibraryName(char* out, unsigned int outSize, const char* baseName,
                             const FsConfig* config);

/// Opens a plug-in that can be trusted and returns the address of `symbol`, or
/// null. `handleOut` (may be null) gets the library's handle, or null with the
/// symbol. A library without the symbol stays loaded too.
void* loadLibraryAndFactory(const char* baseName, const FsConfig* config, const char* symbol,
                            void** handleOut);

}  // namespace fscanner
