#include "fscanner/fs/tav_cfg.h"

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "fscanner/fs/config_file.h"
#include "fscanner/platform/shared_library.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

namespace {

constexpr const char* FILE_NAME = "fscanner/fscanner.conf";
constexpr std::size_t MAX_FILE_SIZE = 1 << 20;

struct LastError {
    TavCfg::Error code = TavCfg::NONE;
    std::string text;
};

LastError& lastError() {
    static LastError error;
    return error;
}

void report(TavCfg::Error code, const std::string& text) {
    if (lastError().code == TavCfg::NONE) lastError() = {code, text};
}

// Empty when unset, empty, or when the process runs with raised privileges.
std::string environment(const char* name) {
    const char* value = ::secure_getenv(name);
    return value != nullptr ? value : "";
}

bool exists(const std::string& path) {
    std::error_code error;
    const auto type = std::filesystem::status(path, error).type();
    return type != std::filesystem::file_type::not_found;
}

// Where the user's file is, or would be; empty without a home directory. Only
// absolute paths count: settings do not depend on the current directory.
std::string personalFile() {
    std::string base = environment("XDG_CONFIG_HOME");
    if (!base.starts_with('/')) {
        base = environment("HOME");
        if (!base.starts_with('/')) return {};
        base += "/.config";
    }
    return base + "/" + FILE_NAME;
}

// A file that is named explicitly has to be there; of the others one may be.
std::string userFile() {
    std::string path = environment("FSCANNER_CONFIG");
    if (!path.empty()) return path;
    path = personalFile();
    if (!path.empty() && exists(path)) return path;
    return exists(configPlaces().systemFile) ? configPlaces().systemFile : std::string();
}

// Nothing but a regular file of a sensible size: a FIFO would block.
ConfigSettings readFile(const std::string& path) {
    const std::optional<std::string> text = readWholeFile(path.c_str(), MAX_FILE_SIZE);
    if (!text) {
        report(TavCfg::UNREADABLE, path + ": cannot be read");
        return {};
    }
    ConfigSettings settings = parseConfig(*text, path);
    if (!settings.error.empty()) report(TavCfg::MALFORMED, settings.error);
    return settings;
}

std::string valueIn(const std::string& path, const char* key) {
    if (path.empty()) return {};
    const ConfigSettings settings = readFile(path);
    const auto found = settings.values.find(key);
    return found != settings.values.end() ? found->second : std::string();
}

}  // namespace

ConfigPlaces& configPlaces() {
    static ConfigPlaces places{std::string("/etc/") + FILE_NAME,
                               ownLibraryDirectory() + "/" + FILE_NAME};
    return places;
}

String TavCfg::getKey(const String& key) {
    lastError() = {};
    std::string value = valueIn(userFile(), key);
    if (value.empty() && exists(configPlaces().vendorFile))
        value = valueIn(configPlaces().vendorFile, key);
    return value.c_str();
}

int TavCfg::getError() {
    return lastError().code;
}

const std::string& TavCfg::getErrorText() {
    return lastError().text;
}

}  // namespace fscanner
