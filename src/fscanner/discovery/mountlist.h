#pragma once

#include <dirent.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The mount table: its entries, its readers, and the opening of an automounter's placeholders.

namespace fscanner {

/// One entry of the mount table. Owns its texts, which are null until they are set.
class MountEntry {
public:
    MountEntry() = default;
    /// Copies the flags only if all three texts could be copied.
    MountEntry(const MountEntry& other);
    MountEntry(MountEntry&& other) noexcept = default;
    MountEntry& operator=(const MountEntry& other);
    MountEntry& operator=(MountEntry&& other) noexcept = default;
    ~MountEntry() = default;

    /// Replace one text by a copy. For null they return false and change nothing. Without
    /// memory they return false and empty the whole entry.
    bool setDevName(const char* device);
    bool setMountDir(const char* directory);
    bool setFileSystemType(const char* type);
    void setDummy(bool dummy) { dummy_ = dummy; }
    void setRemote(bool remote) { remote_ = remote; }

    /// The entry owns the texts. They are valid until they are replaced.
    const char* getDevName() const { return pointer(device_); }
    const char* getMountDir() const { return pointer(directory_); }
    const char* getFileSystemType() const { return pointer(type_); }
    /// Whether this is a placeholder: an automounter mounts a file system there when the
    /// directory is opened.
    bool isDummy() const { return dummy_; }
    bool isRemote() const { return remote_; }

private:
    using Text = std::optional<std::string>;

    static const char* pointer(const Text& text) { return text ? text->c_str() : nullptr; }
    bool set(Text& text, const char* value);

    Text device_;
    Text directory_;
    Text type_;
    bool dummy_ = false;
    bool remote_ = false;
};

/// Classifies mounts, and for hosts reads the table of mounted file systems.
class MountTableManager {
public:
    /// Whether the file system is remote. It is if the device contains ":" ("host:path"), or if
    /// the type is "nfs" or "ncpfs", or "smbfs" on a device that begins with "//". All others
    /// count as local: "nfs4" is recognised by its device, and "cifs" is not recognised.
    static bool isRemoteFileSystem(const char* device, const char* type);
    /// Whether the type is a placeholder of an automounter: "autofs" or "ignore".
    static bool isDummyFileSystem(const char* type);

    // ---- Offered to hosts; nothing in fscanner uses what follows ------------

    /// Appends every mount, in the table's order. If the table cannot be read, returns false and
    /// leaves the list as it is.
    static bool getMountEntryList(std::vector<MountEntry>& list);
};

/// Parses a table in the format of /proc/self/mountinfo and appends the mounts that a path can
/// reach. A mount that is covered by a later mount, on its directory or on a parent of it, is left
/// out. Placeholders with the option "ignore" are kept. Lines with too few fields are left out.
void parseMountInfo(std::string_view text, std::vector<MountEntry>& list);

/// The text of the mount table, read once for a search.
struct MountTable {
    std::string text;
    /// Whether the text is the kernel's mountinfo. Only mountinfo tells which mounts are
    /// covered, and its directories contain no symbolic links.
    bool ofKernel = false;

    bool operator==(const MountTable&) const = default;
};

/// Reads mountinfo if the file `mountTablePath` is the kernel's own list or, being the default
/// file, is missing. Otherwise reads that file. Nothing if the table cannot be read.
std::optional<MountTable> readMountTable();
/// The mounts of the table, in its order, placeholders with the option "ignore" included. Covered
/// mounts are left out if the table is the kernel's.
std::vector<MountEntry> reachableMounts(const MountTable& table);

/// The path of the mount table. Tests set another path; null means the default.
const char* mountTablePath();
void setMountTablePath(const char* path);

/// Opens and closes a directory, so that an automounter mounts the file system that belongs
/// there. Waits for the automounter. False if the directory cannot be opened.
bool accessMountPath(const char* path);

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Parses a table in the format of /etc/mtab and appends its mounts. Each line has the fields
/// device, directory, type and options; further fields are not read. Blanks in a field are
/// written as octal escapes. Comments, lines with fewer than three fields, and placeholders with
/// the option "ignore" are left out.
void parseMountTable(std::string_view text, std::vector<MountEntry>& list);

/// Calls `accessMountPath` for every placeholder of the mount table.
void accessToAllMountPaths();

/// Opens and reads every directory in `dir`, whose path is `base`, so that an automounter mounts
/// what belongs there. The caller closes `dir`.
void accessToAllMountPathsRead(DIR* dir, const char* base);

}  // namespace fscanner
