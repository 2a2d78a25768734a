#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace fscanner {

/// Cuts the output of `file -b -00` into descriptions, one per file and in order.
///
/// Each ends with a NUL, which no description can hold, so nothing that a file is
/// called or contains can shift an answer to another file. A description keeps
/// its first 8191 bytes. Once a broken program has written far more than that
/// many files can need, or more descriptions than there are files, the rest is
/// not read.
class FileOutput {
public:
    explicit FileOutput(std::size_t fileCount) : fileCount_(fileCount) {}

    void append(std::string_view bytes);
    /// Whether nothing that could follow is of use.
    bool complete() const;
    /// The descriptions that came whole; what was cut off by the end is not one.
    std::vector<std::string>& descriptions() { return descriptions_; }

    static constexpr std::size_t longestDescription = 8191;

private:
    std::size_t fileCount_;
    std::size_t received_ = 0;
    std::string current_;
    std::vector<std::string> descriptions_;
};

/// The words of a description or of a wanted type: what stands between runs of
/// blanks, commas and colons.
std::vector<std::wstring> splitTypeWords(std::wstring_view text);

/// What stands behind the first `pathLength` characters of a line
/// "path: description", its tabs and newlines turned into blanks.
std::wstring descriptionOf(std::wstring_view line, std::size_t pathLength);

}  // namespace fscanner
