#pragma once

#include <dirent.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The mount table: its entries, its reader, and the opening of an automounter's placeholders.

namespace fscanner {

/// One line of the mount table. Owns its texts, which are null until they are set.
class MountEntry {
public:
    MountEntry() = default;
    /// The flags are taken only when all three texts were there to be copied.
    MountEntry(const MountEntry& other);
    MountEntry(MountEntry&& other) noexcept = default;
    MountEntry& operator=(const MountEntry& other);
    MountEntry& operator=(MountEntry&& other) noexcept = default;
    ~MountEntry() = default;

    /// Replace one text by a copy. False, nothing changed, for null; false, and
    /// the whole entry is empty, when memory runs out.
    bool setDevName(const char* device);
    bool setMountDir(const char* directory);
    bool setFileSystemType(const char* type);
    void setDummy(bool dummy) { dummy_ = dummy; }
    void setRemote(bool remote) { remote_ = remote; }

    /// Owned by the entry, valid until the text is replaced.
    const char* getDevName() const { return pointer(device_); }
    const char* getMountDir() const { return pointer(directory_); }
    const char* getFileSystemType() const { return pointer(type_); }
    /// Only stands for what an automounter mounts there when it is opened.
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

/// Tells what each mount is, and for hosts reads the table of mounted file systems.
class MountTableManager {
public:
    /// By device ("host:path") or type. A type that is not listed here, on a
    /// device without ":", is local: nfs4 and cifs are told by their devices.
    static bool isRemoteFileSystem(const char* device, const char* type);
    /// A placeholder of an automounter: "autofs" or "ignore".
    static bool isDummyFileSystem(const char* type);

    // ---- Offered to hosts; nothing in fscanner uses what follows ------------

    /// Appends every mount in the table's order. False, and the list is as it
    /// was, when the table cannot be read.
    static bool getMountEntryList(std::vector<MountEntry>& list);
};

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

/// Opens and closes a directory, which makes an automounter mount what belongs there.
/// False when it cannot be opened. Waits for the automounter.
bool accessMountPath(const char* path);

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

/// Appends the mounts that a table's text lists, one a line: device, directory,
/// type, and more that is not read. Blanks in a field are written as octal
/// escapes. Comments, lines with fewer than three fields, and placeholders that
/// carry the option "ignore" are left out.
void parseMountTable(std::string_view text, std::vector<MountEntry>& list);

/// Opens and closes the directory of every placeholder mount, and of no other,
/// which makes the automounter mount what the placeholder stands for.
void accessToAllMountPaths();

/// The deeper form: also reads every directory in `dir`, whose path is `base`.
/// The caller keeps `dir` and closes it.
void accessToAllMountPathsRead(DIR* dir, const char* base);

}  // namespace fscanner
