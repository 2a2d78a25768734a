#pragma once

#include <string>

namespace fscanner {

/// The directory of the file that this library was loaded from (of the program,
/// where it is linked statically); "." when the system does not tell.
std::string ownLibraryDirectory();

/// Opens a shared library with all its symbols resolved. Null, with the reason in
/// `error`, on failure. It stays loaded for as long as the process runs.
void* openLibrary(const char* path, std::string& error);

/// The address of an exported symbol, or null.
void* findSymbol(void* library, const char* name);

/// Says why a plug-in must not be loaded: the path has to be absolute, and the
/// file that it leads to and that file's directory have to belong to root or to
/// the effective user, and not to be writable by anybody else. Empty, with the
/// file's own path in `realPath`, when all that holds.
std::string distrust(const char* path, std::string& realPath);

}  // namespace fscanner
