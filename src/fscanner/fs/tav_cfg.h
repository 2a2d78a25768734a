#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace fscanner {

/// The settings of one configuration file, by "section.key".
struct ConfigSettings {
    std::map<std::string, std::string, std::less<>> values;
    std::string error;  ///< the first malformed line, as "FILE:LINE: message"; or empty
};

/// Parses `text`, the content of the file `path`. If a key is set twice, the last value counts.
/// "$ORIGIN" at the start of a value stands for the directory of the file.
ConfigSettings parseConfig(std::string_view text, const std::string& path);

/// An owned text.
class String {
public:
    String(const char* text = "") : text_(text != nullptr ? text : "") {}
    unsigned length() const { return static_cast<unsigned>(text_.size()); }
    operator const char*() const { return text_.c_str(); }

private:
    std::string text_;
};

/// The settings of the configuration files, by "section.key".
///
/// Two files are read. The user's file is the first of these that exists: `$FSCANNER_CONFIG`,
/// `$XDG_CONFIG_HOME/fscanner/fscanner.conf`, `/etc/fscanner/fscanner.conf`. A key that it does
/// not set is taken from the file that is installed with the library. The environment is ignored
/// in a process with raised privileges. A personal file below a directory that the user may not
/// enter counts as absent.
class TavCfg {
public:
    enum Error { NONE = 0, MALFORMED = 1, UNREADABLE = 2 };

    /// The values of both files, and the first error met while reading them.
    struct Reading {
        std::map<std::string, std::string, std::less<>> values;
        Error error = NONE;
        std::string errorText;
    };
    /// Reads both files.
    static Reading read();

    /// Reads both files and returns the value of `key`; empty if absent. A malformed line is
    /// skipped, and the other lines count.
    static String getKey(const String& key);
    /// The first error met by this thread's last `getKey`, and its description.
    static int getError();
    static const std::string& getErrorText();
};

/// The paths of the two files that no environment variable names. Only tests change them.
struct ConfigPlaces {
    std::string systemFile;
    std::string vendorFile;
};
ConfigPlaces& configPlaces();

}  // namespace fscanner
