#pragma once

#include <optional>

namespace fscan {

/// While it lives, SIGINT, SIGTERM, SIGHUP and SIGPIPE do not end the process but are
/// noted, so that a cache in use is closed properly: one that is not has to be made
/// anew. A second signal ends the process at once, and so does the first a few seconds
/// later, unless an answer is on its way.
///
/// All of this holds while the process waits for a file system that does not answer, where
/// the kernel calls no handler: a thread does it then.
///
/// One at a time. Signals that were ignored before stay so.
class Interruption {
public:
    Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;
    ~Interruption();

    /// Whether the process is to end.
    static bool pending() { return signal() != 0; }
    /// The signal that was noted, or 0.
    static int signal();
    /// Records arrive: what is left takes little time.
    static void answering();
    /// The signal that ends the process when nobody reads its output on, or 0.
    static int ofLostReader();
    /// Ends the process by the signal that was noted, or by SIGPIPE if `readerGone`
    /// and that would have ended it. To be called when the cache is closed.
    void endIfPending(bool readerGone) const;
};

/// While it lives, a process that waits in the kernel a few seconds beyond the time given ends
/// as one whose answer is incomplete. Searches that go on end by themselves. One at a time.
class TimeLimit {
public:
    explicit TimeLimit(std::optional<unsigned> milliseconds);
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
    ~TimeLimit();
};

}  // namespace fscan
