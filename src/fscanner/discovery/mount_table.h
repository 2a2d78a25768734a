#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "fscanner/discovery/mount_entry.h"

namespace fscanner {

/// Reads the table of mounted file systems and tells what each mount is.
class MountTableManager {
public:
    /// Appends every mount in the table's order. False, and the list is as it
    /// was, when the table cannot be read.
    static bool getMountEntryList(std::vector<MountEntry>& list);

    /// By device ("host:path") or type. A type that is not listed here, on a
    /// device without ":", is local: nfs4 and cifs are told by their devices.
    static bool isRemoteFileSystem(const char* device, const char* type);
    /// A placeholder of an automounter: "autofs" or "ignore".
    static bool isDummyFileSystem(const char* type);
};

/// Appends the mounts that a table's text lists, one a line: device, directory,
/// type, and more that is not read. Blanks in a field are written as octal
/// escapes. Comments, lines with fewer than three fields, and placeholders that
/// carry the option "ignore" are left out.
void parseMountTable(std::string_view text, std::vector<MountEntry>& list);

/// The file that holds the table. A test sets another one; null means the default.
const char* mountTablePath();
void setMountTablePath(const char* path);

}  // namespace fscanner
