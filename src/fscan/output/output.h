#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "fscan/output/backlog.h"

namespace fscan {

/// Standard output or error, written in large pieces, and on a terminal after each record.
/// After the first failure, all writes are dropped.
class Output {
public:
    explicit Output(int descriptor);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output();

    /// While it lives, a slow reader does not block the program: text that a pipe or terminal
    /// does not take at once is kept for a later flush.
    class NonBlocking {
    public:
        explicit NonBlocking(Output& output) : output_(output) { output.nonBlocking_ = true; }
        NonBlocking(const NonBlocking&) = delete;
        NonBlocking& operator=(const NonBlocking&) = delete;
        ~NonBlocking() { output_.nonBlocking_ = false; }

    private:
        Output& output_;
    };

    void write(std::string_view text);
    /// A text that others chose: escaped on a terminal, elsewhere as it is.
    void writeForeign(std::string_view text);
    /// A line of a label and a text that others chose.
    void writeLine(std::string_view label, std::string_view foreign);
    void endRecord();
    bool isTerminal() const { return terminal_; }
    void flush();
    /// Writes the text that was kept during an `NonBlocking`, and waits for the reader.
    void catchUp() {
        if (!backlog_.empty()) flush();
    }

    /// The errno of the first failure, or 0. EPIPE means that the reader is gone.
    int error() const { return error_; }

private:
    enum class Wait { no, yes };
    std::size_t pass(std::string_view text, Wait wait);
    std::size_t passAtOnce(std::string_view text);
    void passBacklog(Wait wait);
    void passBehindBacklog(std::string_view& rest, Wait wait);
    void note(int error);

    int descriptor_;
    /// The same pipe or terminal, opened without blocking at the first use; -1 where that failed.
    std::optional<int> nonBlockingFile_;
    bool terminal_;
    bool mayBlock_ = false;  // a pipe, socket or terminal
    bool nonBlocking_ = false;
    int error_ = 0;
    std::string buffer_;
    Backlog backlog_;  // to be written before the buffer
};

/// Whether the user's terminal, if there is one, understands escape sequences.
bool terminalTakesCommands();

/// Whether a pipe or a terminal takes some text at once; other files always do.
bool takesText(int descriptor);

/// Opens those of the descriptors 0 to 2 that are closed, so that no other file becomes
/// standard output. Using them fails, as if they were closed.
void guardStandardDescriptors();

}  // namespace fscan
