#include "fscanner/discovery/mountlist.h"

#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fscanner/common/debug.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

// ---- The entry --------------------------------------------------------------

MountEntry::MountEntry(const MountEntry& other) {
    if (!setDevName(other.getDevName()) || !setMountDir(other.getMountDir()) ||
        !setFileSystemType(other.getFileSystemType())) {
        return;
    }
    dummy_ = other.dummy_;
    remote_ = other.remote_;
}

MountEntry& MountEntry::operator=(const MountEntry& other) {
    return *this = MountEntry(other);
}

bool MountEntry::setDevName(const char* device) {
    return set(device_, device);
}

bool MountEntry::setMountDir(const char* directory) {
    return set(directory_, directory);
}

bool MountEntry::setFileSystemType(const char* type) {
    return set(type_, type);
}

bool MountEntry::set(Text& text, const char* value) {
    if (!value) return false;
    try {
        text = std::string(value);
        return true;
    } catch (const std::bad_alloc&) {
        *this = MountEntry();
        return false;
    }
}

// ---- The table --------------------------------------------------------------

namespace {

constexpr const char* kDefaultMountTable = "/etc/mtab";
constexpr const char* kKernelMountTable = "/proc/self/mounts";
constexpr const char* kKernelMountInfo = "/proc/self/mountinfo";

std::string& tablePath() {
    static std::string path = kDefaultMountTable;
    return path;
}

/// Removes the next field from `line` and returns it; empty at the end of the line.
std::string_view takeField(std::string_view& line) {
    constexpr const char* blanks = " \t";
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view field = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(field.size());
    return field;
}

/// Decodes only the escapes that the writers of the table use. Any other "\" is part of the name.
std::string decodeField(std::string_view field) {
    static constexpr std::array<std::pair<std::string_view, char>, 5> escapes = {
        {{"\\040", ' '}, {"\\011", '\t'}, {"\\012", '\n'}, {"\\134", '\\'}, {"\\\\", '\\'}}};
    std::string text;
    while (!field.empty()) {
        const std::string_view plain = field.substr(0, field.find('\\'));
        text += plain;
        field.remove_prefix(plain.size());
        if (field.empty()) break;
        const auto escape = std::find_if(escapes.begin(), escapes.end(), [field](const auto& one) {
            return field.starts_with(one.first);
        });
        text += escape != escapes.end() ? escape->second : '\\';
        field.remove_prefix(escape != escapes.end() ? escape->first.size() : 1);
    }
    return text;
}

/// Whether the automounter has marked the placeholder with the option "ignore", which asks
/// programs not to list it.
bool isHiddenPlaceholder(std::string_view type, std::string_view options) {
    if (type != "autofs") return false;
    while (!options.empty()) {
        const std::string_view option = options.substr(0, options.find(','));
        if (option == "ignore" || option.starts_with("ignore=")) return true;
        options.remove_prefix(std::min(option.size() + 1, options.size()));
    }
    return false;
}

std::optional<MountEntry> makeEntry(const std::string& device, const std::string& directory,
                                    const std::string& type) {
    MountEntry entry;
    if (!entry.setDevName(device.c_str()) || !entry.setMountDir(directory.c_str()) ||
        !entry.setFileSystemType(type.c_str())) {
        return std::nullopt;
    }
    entry.setDummy(MountTableManager::isDummyFileSystem(type.c_str()));
    entry.setRemote(MountTableManager::isRemoteFileSystem(device.c_str(), type.c_str()));
    return entry;
}

enum class Hidden { skipped, kept };

std::optional<MountEntry> parseLine(std::string_view line, Hidden hidden) {
    const std::string device = decodeField(takeField(line));
    const std::string directory = decodeField(takeField(line));
    const std::string type = decodeField(takeField(line));
    const std::string options = decodeField(takeField(line));
    if (type.empty() || device.front() == '#') return std::nullopt;
    if (hidden == Hidden::skipped && isHiddenPlaceholder(type, options)) return std::nullopt;
    return makeEntry(device, directory, type);
}

std::string_view takeLine(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

void parseTable(std::string_view text, Hidden hidden, std::vector<MountEntry>& list) {
    while (!text.empty()) {
        if (std::optional<MountEntry> entry = parseLine(takeLine(text), hidden))
            list.push_back(std::move(*entry));
    }
}

// ---- The kernel's mountinfo ---------------------------------------------------

/// Removes the next field from a line of mountinfo and returns it. Fields are separated by exactly
/// one blank and may be empty: the source is any text that was passed to mount(2).
std::string_view takeInfoField(std::string_view& line) {
    const std::string_view field = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(field.size() + 1, line.size()));
    return field;
}

/// Decodes a field of mountinfo, where every "\" begins an escape of three octal digits.
std::string decodeOctal(std::string_view field) {
    if (field.find('\\') == field.npos) return std::string(field);
    const auto isDigit = [](char c) { return c >= '0' && c <= '7'; };
    std::string text;
    while (!field.empty()) {
        const bool escape = field.size() >= 4 && field[0] == '\\' && isDigit(field[1]) &&
                            isDigit(field[2]) && isDigit(field[3]);
        text +=
            escape
                ? static_cast<char>((field[1] - '0') * 64 + (field[2] - '0') * 8 + (field[3] - '0'))
                : field[0];
        field.remove_prefix(escape ? 4 : 1);
    }
    return text;
}

struct InfoLine {
    std::string_view id;  // of the table's text, like the parent
    std::string_view parent;
    std::string directory;
    MountEntry mount;
};

std::optional<InfoLine> parseInfoLine(std::string_view line) {
    InfoLine info;
    info.id = takeInfoField(line);
    info.parent = takeInfoField(line);
    takeInfoField(line);  // device
    takeInfoField(line);  // root
    info.directory = decodeOctal(takeInfoField(line));
    takeInfoField(line);  // options
    while (!line.empty() && takeInfoField(line) != "-") continue;
    const std::string type = decodeOctal(takeInfoField(line));
    const std::string source = decodeOctal(takeInfoField(line));
    if (type.empty()) return std::nullopt;
    std::optional<MountEntry> mount = makeEntry(source, info.directory, type);
    if (!mount) return std::nullopt;
    info.mount = std::move(*mount);
    return info;
}

/// Resolves a path from mount to mount, as the kernel does, to find the mount that it leads to.
class MountTree {
public:
    explicit MountTree(const std::vector<InfoLine>& lines) : size_(lines.size()) {
        std::set<std::string_view> ids;
        for (const InfoLine& line : lines) ids.insert(line.id);
        for (const InfoLine& line : lines) {
            // The parent of the root mount is not in the list. After chroot the root mount may
            // be missing, too, and so the parent of its children. All such mounts hang on "".
            const bool listed = line.parent != line.id && ids.contains(line.parent);
            mounts_[{listed ? line.parent : "", line.directory}] = line.id;
        }
    }

    /// The ID of the mount on which `directory` lies. A file system mounted over "/" later is
    /// never met, because the resolution starts at the root mount itself.
    std::string_view reachedBy(std::string_view directory) const {
        std::string_view mount = next("", "/").value_or("");
        std::size_t end = directory.size() > 1 ? directory.find('/', 1) : directory.npos;
        for (; directory.size() > 1; end = directory.find('/', end + 1)) {
            mount = topAt(mount, directory.substr(0, end));
            if (end == directory.npos) break;
        }
        return mount;
    }

private:
    std::optional<std::string_view> next(std::string_view mount, std::string_view at) const {
        const auto found = mounts_.find({mount, at});
        if (found == mounts_.end()) return std::nullopt;
        return found->second;
    }

    /// The topmost of the mounts stacked on `directory`. The limit on the number of steps ends
    /// a cycle in a damaged table.
    std::string_view topAt(std::string_view mount, std::string_view directory) const {
        for (std::size_t i = 0; i < size_; ++i) {
            const std::optional<std::string_view> upper = next(mount, directory);
            if (!upper) break;
            mount = *upper;
        }
        return mount;
    }

    std::size_t size_;
    /// The mount's ID by parent and directory. A later line replaces an earlier one.
    std::map<std::pair<std::string_view, std::string_view>, std::string_view> mounts_;
};

bool isOfKernel(const char* path) {
    struct statfs info {};
    return statfs(path, &info) == 0 && info.f_type == PROC_SUPER_MAGIC;
}

}  // namespace

const char* mountTablePath() {
    return tablePath().c_str();
}

void setMountTablePath(const char* path) {
    tablePath() = path ? path : kDefaultMountTable;
}

void parseMountInfo(std::string_view text, std::vector<MountEntry>& list) {
    std::vector<InfoLine> lines;
    lines.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1);
    while (!text.empty()) {
        if (std::optional<InfoLine> line = parseInfoLine(takeLine(text)))
            lines.push_back(std::move(*line));
    }
    const MountTree tree(lines);
    list.reserve(list.size() + lines.size());
    for (InfoLine& line : lines) {
        if (tree.reachedBy(line.directory) == line.id) list.push_back(std::move(line.mount));
    }
}

std::optional<MountTable> readMountTable() {
    std::optional<std::string> text;
    const bool ofKernel = isOfKernel(mountTablePath());
    const bool missing =
        !ofKernel && tablePath() == kDefaultMountTable && access(kDefaultMountTable, F_OK) != 0;
    if (missing || ofKernel) text = readWholeFile(kKernelMountInfo);
    if (text) return MountTable{std::move(*text), true};
    text = readWholeFile(missing ? kKernelMountTable : mountTablePath());
    if (text) return MountTable{std::move(*text), false};
    return std::nullopt;
}

std::vector<MountEntry> reachableMounts(const MountTable& table) {
    std::vector<MountEntry> mounts;
    if (table.ofKernel) {
        parseMountInfo(table.text, mounts);
    } else {
        parseTable(table.text, Hidden::kept, mounts);
    }
    return mounts;
}

bool MountTableManager::isRemoteFileSystem(const char* device, const char* type) {
    // A ":" anywhere counts, so a local device below /dev/disk/by-path is remote too.
    if (std::strchr(device, ':')) return true;
    if (std::strncmp(device, "//", 2) == 0 && std::strcmp(type, "smbfs") == 0) return true;
    return std::strcmp(type, "ncpfs") == 0 || std::strcmp(type, "nfs") == 0;
}

bool MountTableManager::isDummyFileSystem(const char* type) {
    return std::strcmp(type, "autofs") == 0 || std::strcmp(type, "ignore") == 0;
}

// ---- Placeholders -----------------------------------------------------------

namespace {

struct CloseDirectory {
    void operator()(DIR* dir) const { closedir(dir); }
};
using Directory = std::unique_ptr<DIR, CloseDirectory>;

}  // namespace

bool accessMountPath(const char* path) {
    const Directory dir(opendir(path));
    if (dir) debug("accessToAllMountPaths - path '%s' accessed\n", path);
    return dir != nullptr;
}

// ---- Offered to hosts; nothing in fscanner uses what follows ----------------

void parseMountTable(std::string_view text, std::vector<MountEntry>& list) {
    parseTable(text, Hidden::skipped, list);
}

bool MountTableManager::getMountEntryList(std::vector<MountEntry>& list) {
    debug("MountTableManager::getMountEntryList - MOUNTED_GETMNTENT1 defined!\n");
    std::optional<std::string> text = readWholeFile(mountTablePath());
    // /etc/mtab is usually a link to the kernel's table. A minimal or freshly unpacked system may
    // lack the link, so the kernel's table is read directly.
    if (!text && tablePath() == kDefaultMountTable) text = readWholeFile(kKernelMountTable);
    if (text) parseMountTable(*text, list);
    debug("MountTableManager::getMountEntryList - mountEntryList size is %d!\n",
          static_cast<int>(list.size()));
    debug("MountTableManager::getMountEntryList - exiting with retValue = %s!\n",
          text ? "true" : "false");
    return text.has_value();
}

namespace {

bool isDotName(const std::string& name) {
    return name == "." || name == "..";
}

void readThrough(DIR* dir) {
    while (const dirent* entry = readdir(dir)) {
        if (isDotName(entry->d_name)) {
            debug("accessToAllMountPathsRead - continue\n");
            continue;
        }
        debug("accessToAllMountPathsRead - subdirectory file '%s'\n", entry->d_name);
    }
}

}  // namespace

void accessToAllMountPaths() {
    std::vector<MountEntry> entries;
    MountTableManager::getMountEntryList(entries);
    for (const MountEntry& entry : entries) {
        if (entry.isDummy()) accessMountPath(entry.getMountDir());
    }
}

void accessToAllMountPathsRead(DIR* dir, const char* base) {
    while (const dirent* entry = readdir(dir)) {
        if (isDotName(entry->d_name)) continue;
        debug("accessToAllMountPathsRead - subdirectory '%s' read\n", entry->d_name);
        const std::string path = std::string(base) + "/" + entry->d_name;
        const Directory child(opendir(path.c_str()));
        debug("accessToAllMountPathsRead - subdirectory '%s' %s\n", path.c_str(),
              child ? "accessed" : "failed");
        if (child) readThrough(child.get());
    }
}

}  // namespace fscanner
