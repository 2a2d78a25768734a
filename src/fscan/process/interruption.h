#pragma once

#include <optional>

namespace fscan {

/// While it lives, SIGINT, SIGTERM, SIGHUP and SIGPIPE do not end the process but are
/// noted, so that a cache in use is closed properly. A second signal ends the process at
/// once. The first one does so after a few seconds, unless `answering` was called.
///
/// All of this works also while the process is blocked by a file system that does not
/// answer: a second thread then calls the handlers.
///
/// Only one object at a time. Signals that were ignored before stay ignored.
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
    /// Records arrive: the search will end soon, and is given the time for it.
    static void answering();
    /// The signal that ends the process when the reader of its output is gone, or 0.
    static int ofLostReader();
    /// Ends the process by the signal that was noted, or by SIGPIPE if `readerGone`
    /// and that would have ended it. To be called when the cache is closed.
    void endIfPending(bool readerGone) const;
};

/// While it lives, a process that is blocked in the kernel a few seconds beyond the given time
/// ends with the status `incomplete`. A search that is not blocked ends itself in time. Only one
/// object at a time.
class TimeLimit {
public:
    explicit TimeLimit(std::optional<unsigned> milliseconds);
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
    ~TimeLimit();
};

}  // namespace fscan
