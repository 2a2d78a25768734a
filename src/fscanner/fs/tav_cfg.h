#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace fscanner {

/// The settings of one configuration file, by dotted keys.
struct ConfigSettings {
    std::map<std::string, std::string, std::less<>> values;
    std::string error;  ///< the first malformed line, as "file:line: what"; empty if none
};

/// Reads `text`, the content of the file `path`. Of a key that is set twice the
/// last value counts. "$ORIGIN" at the start of a value stands for the file's
/// directory.
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

/// The configuration file, by dotted keys: "section.key".
///
/// A key's value is the user's (`$FSCANNER_CONFIG`, else
/// `$XDG_CONFIG_HOME/fscanner/fscanner.conf`, else
/// `/etc/fscanner/fscanner.conf`: the first that exists), or where that file does
/// not set it, the one of the file that is installed with the library. The
/// environment is not asked when the process runs with raised privileges. A personal
/// file below a directory that the user may not enter counts as absent.
class TavCfg {
public:
    enum Error { NONE = 0, MALFORMED = 1, UNREADABLE = 2 };

    /// The values that count at one moment, and the first error met in reading them.
    struct Reading {
        std::map<std::string, std::string, std::less<>> values;
        Error error = NONE;
        std::string errorText;
    };
    /// Reads the files, each once.
    static Reading read();

    /// The value, empty when absent. Lines that are not malformed count even if
    /// others are.
    static String getKey(const String& key);
    /// The first error met by this thread's last `getKey`, and its description.
    static int getError();
    static const std::string& getErrorText();
};

/// Where the files are; only tests change it.
struct ConfigPlaces {
    std::string systemFile;
    std::string vendorFile;
};
ConfigPlaces& configPlaces();

}  // namespace fscanner
