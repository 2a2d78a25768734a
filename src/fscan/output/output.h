#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "fscan/process/scratch_file.h"

namespace fscan {

/// A queue of text that the reader has not taken yet: in memory up to a bound, beyond it in
/// a temporary file.
class Backlog {
public:
    bool empty() const { return front_.size() == taken_ && !hasMoreInFile(); }
    /// Appends all of it. False where the file cannot be made or written: nothing was appended.
    [[nodiscard]] bool add(std::string_view text);
    /// The first part; empty where there is none, or, with errno, where the file cannot be
    /// read. Valid until the next call of another operation.
    std::string_view front();
    /// Drops the first bytes of `front`.
    void drop(std::size_t size);

private:
    bool hasMoreInFile() const { return file_ && given_ < file_->size(); }

    std::string front_;
    std::size_t taken_ = 0;            // bytes of it that were dropped
    std::optional<ScratchFile> file_;  // the text that follows `front_`
    off_t given_ = 0;                  // bytes of the file that were moved to `front_`
};

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
    /// Writes the text that was kept during a `NonBlocking`, and waits for the reader.
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

/// The width of the terminal; where it does not tell, that of the variable COLUMNS, or 80.
int terminalColumns(int descriptor);

/// Whether a pipe or a terminal takes some text at once; other files always do.
bool takesText(int descriptor);

/// Opens those of the descriptors 0 to 2 that are closed, so that no other file becomes
/// standard output. Using them fails, as if they were closed.
void guardStandardDescriptors();

/// Standard error.
Output& errors();

/// Writes "fscan: TEXT" to standard error, escaped where that is a terminal; then
/// the lines of `detail`, which must be harmless.
void complain(std::string_view text, std::string_view detail = {});
/// Writes "fscan: TEXT: " and the message for this errno.
void complain(std::string_view text, int systemError);

/// Two indented lines: the text, and a caret below its character `position`. Columns are
/// counted as a terminal shows them; characters that it could not show become "?".
std::string pointAt(std::wstring_view text, std::size_t position);

}  // namespace fscan
