#pragma once

#include <string>
#include <string_view>

namespace fscanner {
class FsFileInfo;
}

namespace fscan {

class Output;
struct Options;

/// Prints the matches in the chosen form and counts them.
class RecordPrinter {
public:
    RecordPrinter(const Options& options, Output& out);

    /// `path` is the file's, as the user is to see it.
    void print(const fscanner::FsFileInfo& record, std::string_view path);
    /// The total, where that is what was asked for.
    void finish();
    unsigned long long count() const { return count_; }

private:
    Output& out_;
    bool long_;
    bool countOnly_;
    char terminator_;
    unsigned long long count_ = 0;
};

/// "-rw-r--r--" from a record's attributes.
std::string attributeText(unsigned attributes);

}  // namespace fscan
