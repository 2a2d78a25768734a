#pragma once

#include <string>
#include <string_view>

namespace fscan {

/// Standard output, in large pieces; flushed after each record where someone
/// watches. The first failure sticks: later writes are dropped.
class Output {
public:
    explicit Output(int descriptor);

    void write(std::string_view text);
    /// A text that others chose: escaped on a terminal, elsewhere as it is.
    void writeForeign(std::string_view text);
    void endRecord();
    bool isTerminal() const { return terminal_; }
    void flush();

    /// The errno of the first failure, or 0. EPIPE means that nobody reads on.
    int error() const { return error_; }

private:
    int descriptor_;
    bool terminal_;
    int error_ = 0;
    std::string buffer_;
};

/// Opens what is closed of the descriptors 0 to 2 in a way that fails on use, so
/// that no file of ours takes the place of standard output.
void guardStandardDescriptors();

}  // namespace fscan
