#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "fscan/output/backlog.h"

namespace fscan {

/// Standard output, in large pieces; flushed after each record where someone
/// watches. The first failure sticks: later writes are dropped.
class Output {
public:
    explicit Output(int descriptor);
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output();

    /// While it lives, whoever reads a pipe or watches a terminal keeps nobody waiting: what
    /// is not taken at once goes to the reader with a later flush.
    class Impatience {
    public:
        explicit Impatience(Output& output) : output_(output) { output.impatient_ = true; }
        Impatience(const Impatience&) = delete;
        Impatience& operator=(const Impatience&) = delete;
        ~Impatience() { output_.impatient_ = false; }

    private:
        Output& output_;
    };

    void write(std::string_view text);
    /// A text that others chose: escaped on a terminal, elsewhere as it is.
    void writeForeign(std::string_view text);
    void endRecord();
    bool isTerminal() const { return terminal_; }
    void flush();
    /// Passes on what was kept for an impatient program, if there is any.
    void catchUp() {
        if (!backlog_.empty()) flush();
    }

    /// The errno of the first failure, or 0. EPIPE means that nobody reads on.
    int error() const { return error_; }

private:
    enum class Wait { no, yes };
    std::size_t pass(std::string_view text, Wait wait);
    std::size_t passAtOnce(std::string_view text);
    void passBacklog(Wait wait);
    void passBehindBacklog(std::string_view& rest, Wait wait);
    void note(int error);

    int descriptor_;
    /// The same pipe or terminal by a descriptor that does not wait, once it was asked for. -1
    /// where that is not to be had.
    std::optional<int> unwaiting_;
    bool terminal_;
    bool mayBlock_ = false;  // for as long as a reader likes
    bool impatient_ = false;
    int error_ = 0;
    std::string buffer_;
    Backlog backlog_;  // comes before the buffer
};

/// Whether the user's terminal, if there is one, understands colours and the like.
bool terminalTakesCommands();

/// Whether a pipe or a terminal takes some text at once; other files always do.
bool takesText(int descriptor);

/// Opens what is closed of the descriptors 0 to 2 in a way that fails on use, so
/// that no file of ours takes the place of standard output.
void guardStandardDescriptors();

}  // namespace fscan
