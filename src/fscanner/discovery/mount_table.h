#pragma once

#include <optional>
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

/// Appends the mounts that a text like /proc/self/mountinfo lists and that paths lead
/// to: one that a later mount on it, or on one of its parents, covers is left out. The
/// placeholders with the option "ignore" are kept. Lines with too few fields are left out.
void parseMountInfo(std::string_view text, std::vector<MountEntry>& list);

/// The table as a search reads it, once.
struct MountTable {
    std::string text;
    /// The text is the kernel's mountinfo: it tells which mounts are covered, and its
    /// directories have no symbolic links in them.
    bool ofKernel = false;

    bool operator==(const MountTable&) const = default;
};

/// Reads the mountinfo where `mountTablePath` is the kernel's own list, or there is none;
/// else that file. Nothing when it cannot be read.
std::optional<MountTable> readMountTable();
/// The mounts of the table that can be told to be reachable, in its order, placeholders
/// with the option "ignore" included.
std::vector<MountEntry> reachableMounts(const MountTable& table);

/// The file that holds the table. A test sets another one; null means the default.
const char* mountTablePath();
void setMountTablePath(const char* path);

}  // namespace fscanner
