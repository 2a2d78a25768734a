#pragma once

#include <sstream>

#include "build_paths.h"
#include "support/temporary_directory.h"

namespace fscanner {

/// The bytes of the n-th example in a document of docs/formats: in a block marked "hex"
/// each line starts with its bytes, and ends with what they mean.
inline std::string exampleBytes(const std::string& document, int n) {
    std::istringstream text(
        readWholeFile(std::string(FSCANNER_SOURCE_DIR) + "/docs/formats/" + document));
    std::string line, bytes;
    while (n >= 0 && std::getline(text, line)) n -= line == "```hex" ? 1 : 0;
    while (std::getline(text, line) && line != "```") {
        std::istringstream words(line.substr(0, line.find("  ")));
        for (std::string word; words >> word;) {
            bytes += static_cast<char>(std::stoi(word, nullptr, 16));
        }
    }
    return bytes;
}

}  // namespace fscanner
