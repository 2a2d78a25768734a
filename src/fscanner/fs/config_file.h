#pragma once

#include <map>
#include <string>
#include <string_view>

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

}  // namespace fscanner
