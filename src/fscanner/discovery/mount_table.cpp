#include "fscanner/discovery/mount_table.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <utility>

#include "fscanner/fs/debug.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

namespace {

constexpr const char* defaultMountTable = "/etc/mtab";

std::string& tablePath() {
    static std::string path = defaultMountTable;
    return path;
}

/// The next field of `line`, which loses it; empty at the line's end.
std::string_view takeField(std::string_view& line) {
    constexpr const char* blanks = " \t";
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view field = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(field.size());
    return field;
}

/// What the table's writers escape, no more: a name that merely looks like
/// another escape stays as it is.
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

/// An automounter's own mark that programs shall not list this placeholder.
bool isHiddenPlaceholder(std::string_view type, std::string_view options) {
    if (type != "autofs") return false;
    while (!options.empty()) {
        const std::string_view option = options.substr(0, options.find(','));
        if (option == "ignore" || option.starts_with("ignore=")) return true;
        options.remove_prefix(std::min(option.size() + 1, options.size()));
    }
    return false;
}

std::optional<MountEntry> parseLine(std::string_view line) {
    const std::string device = decodeField(takeField(line));
    const std::string directory = decodeField(takeField(line));
    const std::string type = decodeField(takeField(line));
    const std::string options = decodeField(takeField(line));
    if (type.empty() || device.front() == '#') return std::nullopt;
    if (isHiddenPlaceholder(type, options)) return std::nullopt;
    MountEntry entry;
    if (!entry.setDevName(device.c_str()) || !entry.setMountDir(directory.c_str()) ||
        !entry.setFileSystemType(type.c_str())) {
        return std::nullopt;
    }
    entry.setDummy(MountTableManager::isDummyFileSystem(type.c_str()));
    entry.setRemote(MountTableManager::isRemoteFileSystem(device.c_str(), type.c_str()));
    return entry;
}

}  // namespace

const char* mountTablePath() {
    return tablePath().c_str();
}

void setMountTablePath(const char* path) {
    tablePath() = path ? path : defaultMountTable;
}

void parseMountTable(std::string_view text, std::vector<MountEntry>& list) {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (std::optional<MountEntry> entry = parseLine(line)) list.push_back(std::move(*entry));
    }
}

bool MountTableManager::getMountEntryList(std::vector<MountEntry>& list) {
    debug("MountTableManager::getMountEntryList - MOUNTED_GETMNTENT1 defined!\n");
    std::optional<std::string> text = readWholeFile(mountTablePath());
    // What the file links to elsewhere is there also where nobody has made the link, as
    // in a system that was just unpacked.
    if (!text && tablePath() == defaultMountTable) text = readWholeFile("/proc/self/mounts");
    if (text) parseMountTable(*text, list);
    debug("MountTableManager::getMountEntryList - mountEntryList size is %d!\n",
          static_cast<int>(list.size()));
    debug("MountTableManager::getMountEntryList - exiting with retValue = %s!\n",
          text ? "true" : "false");
    return text.has_value();
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

}  // namespace fscanner
