#include "fscanner/fs/tav_cfg.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <utility>

#include "fscanner/platform/shared_library.h"
#include "fscanner/platform/small_file.h"

namespace fscanner {

// ---- Text -------------------------------------------------------------------

namespace {

constexpr std::string_view kBlanks = " \t\r";
constexpr std::string_view kOrigin = "$ORIGIN";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return trimmed(line);
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == path.npos ? "." : path.substr(0, slash);
}

class Parser {
public:
    explicit Parser(const std::string& path) : path_(path) {}

    void line(std::string_view text) {
        ++number_;
        if (text.empty() || text[0] == '#') return;
        const bool opens = text[0] == '[';
        if (opens) section_.clear();
        const char* wrong = text.find('\0') != text.npos ? "a zero byte"
                            : opens                      ? section(text)
                                                         : setting(text);
        if (wrong != nullptr && settings_.error.empty())
            settings_.error = path_ + ":" + std::to_string(number_) + ": " + wrong;
    }
    ConfigSettings take() { return std::move(settings_); }

private:
    // Both return an error message, or null.
    const char* section(std::string_view text) {
        if (text.back() != ']') return "a section has no \"]\" at its end";
        section_ = trimmed(text.substr(1, text.size() - 2));
        return section_.empty() ? "a section has no name" : nullptr;
    }
    const char* setting(std::string_view text) {
        const std::size_t equals = text.find('=');
        if (equals == text.npos) return "neither \"key = value\" nor \"[section]\"";
        const std::string_view key = trimmed(text.substr(0, equals));
        if (key.empty()) return "a value has no key";
        if (section_.empty()) return "a key stands before any section";
        settings_.values[section_ + "." + std::string(key)] =
            expanded(trimmed(text.substr(equals + 1)));
        return nullptr;
    }
    std::string expanded(std::string_view value) const {
        const std::string_view rest = value.substr(std::min(kOrigin.size(), value.size()));
        if (!value.starts_with(kOrigin) || !(rest.empty() || rest[0] == '/'))
            return std::string(value);
        return directoryOf(path_).append(rest);
    }

    const std::string& path_;
    unsigned number_ = 0;
    std::string section_;
    ConfigSettings settings_;
};

}  // namespace

ConfigSettings parseConfig(std::string_view text, const std::string& path) {
    Parser parser(path);
    while (!text.empty()) parser.line(takeLine(text));
    return parser.take();
}

// ---- Places -----------------------------------------------------------------

namespace {

constexpr const char* kFileName = "fscanner/fscanner.conf";
constexpr std::size_t kMaxFileSize = 1 << 20;

// Empty when unset, empty, or when the process runs with raised privileges.
std::string environment(const char* name) {
    const char* value = ::secure_getenv(name);
    return value != nullptr ? value : "";
}

// A file in a directory that the user may not enter counts as absent: the environment may be
// another user's, as after "su".
bool exists(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ||
           (errno != ENOENT && errno != ENOTDIR && errno != EACCES);
}

// The path of the personal file, whether it exists or not; empty without a home directory.
// Relative paths in the environment are ignored, because settings must not depend on the current
// directory.
std::string personalFile() {
    std::string base = environment("XDG_CONFIG_HOME");
    if (!base.starts_with('/')) {
        base = environment("HOME");
        if (!base.starts_with('/')) return {};
        base += "/.config";
    }
    return base + "/" + kFileName;
}

// A file named by $FSCANNER_CONFIG must exist, so it is returned untested. The others may be
// absent.
std::string userFile() {
    std::string path = environment("FSCANNER_CONFIG");
    if (!path.empty()) return path;
    path = personalFile();
    if (!path.empty() && exists(path)) return path;
    return exists(configPlaces().systemFile) ? configPlaces().systemFile : std::string();
}

void note(TavCfg::Reading& reading, TavCfg::Error error, const std::string& text) {
    if (reading.error != TavCfg::NONE) return;
    reading.error = error;
    reading.errorText = text;
}

// Adds the settings of a file. They replace those of earlier files, except that an empty value
// replaces nothing. Only a regular file of limited size is read: a FIFO would block.
void addFile(const std::string& path, TavCfg::Reading& reading) {
    if (path.empty()) return;
    const std::optional<std::string> text = readWholeFile(path.c_str(), kMaxFileSize);
    if (!text) return note(reading, TavCfg::UNREADABLE, path + ": cannot be read");
    ConfigSettings settings = parseConfig(*text, path);
    if (!settings.error.empty()) note(reading, TavCfg::MALFORMED, settings.error);
    for (auto& [key, value] : settings.values)
        if (!value.empty()) reading.values[key] = std::move(value);
}

TavCfg::Reading& lastReading() {
    static thread_local TavCfg::Reading reading;
    return reading;
}

}  // namespace

ConfigPlaces& configPlaces() {
    static ConfigPlaces places{std::string("/etc/") + kFileName,
                               ownLibraryDirectory() + "/" + kFileName};
    return places;
}

TavCfg::Reading TavCfg::read() {
    Reading reading;
    if (exists(configPlaces().vendorFile)) addFile(configPlaces().vendorFile, reading);
    addFile(userFile(), reading);
    return reading;
}

String TavCfg::getKey(const String& key) {
    lastReading() = read();
    const auto found = lastReading().values.find(static_cast<const char*>(key));
    return found != lastReading().values.end() ? found->second.c_str() : "";
}

int TavCfg::getError() {
    return lastReading().error;
}

const std::string& TavCfg::getErrorText() {
    return lastReading().errorText;
}

}  // namespace fscanner
