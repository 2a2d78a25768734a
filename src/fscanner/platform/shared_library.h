#pragma once

#include <string>

namespace fscanner {

/// The directory of the file that contains this library: the shared object, or the
/// program if it is linked statically. "." when the system cannot tell.
std::string ownLibraryDirectory();

/// Loads a shared library and resolves all its symbols. Null, with the reason in
/// `error`, on failure. The library is never unloaded.
void* openLibrary(const char* path, std::string& error);

/// The address of an exported symbol, or null.
void* findSymbol(void* library, const char* name);

/// Why the plug-in must not be loaded, or empty when it may be loaded; `realPath` is
/// then its path without symbolic links. The path must be absolute. The file and the
/// directory that contains it must belong to root or the effective user, and the group
/// and others must not be able to write to them. Directories further up are not checked.
std::string distrust(const char* path, std::string& realPath);

}  // namespace fscanner
