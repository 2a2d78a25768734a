#include "fscan/process/interruption.h"
#include "fscan/process/exit_status.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <string_view>
#include <thread>
#include <utility>

#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_resource_manager.h"

namespace fscan {

namespace {

// How long a search may take to end after a signal.
constexpr unsigned kGraceSeconds = 3;

constexpr std::array<int, 3> kEnding = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> noted = 0;
std::atomic<int> isAnswering = 0;
bool pipeEnds = false;

void unblockDefault(int signal) {
    std::signal(signal, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

// With a log, the handlers run twice: first without it, as its lines take memory, for which a
// signal handler may wait for ever. Then the files are gone, and an alarm ends a second run that
// hangs.
void removeFiles(int signal) {
    fscanner::FsResourceManager& files = *fscanner::FsResourceManager::getInstance();
    const bool logged = fscanner::debugInfo;
    fscanner::stopDebug();
    files.invokeCleanupHandlers(signal);
    if (!logged) return;
    unblockDefault(SIGALRM);
    alarm(1);
    fscanner::startDebug();
    files.invokeCleanupHandlers(signal);
}

// Removes the library's temporary files and ends the process by the signal.
extern "C" void endBy(int signal) {
    removeFiles(signal);
    unblockDefault(signal);
    raise(signal);
}

extern "C" void note(int signal) {
    if (noted != 0) endBy(signal);
    noted = signal;
    if (isAnswering == 0) alarm(kGraceSeconds);
}

// For SIGPIPE. Not SIG_IGN, which the commands that are run would inherit.
extern "C" void doNothing(int) {}

extern "C" void endAfterGrace(int) {
    endBy(noted);
}

bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(signal, &action, nullptr);
}

// ---- A process that is blocked in the kernel ----

// A wait for a dead file system ends only with the process, and the kernel calls no handler
// meanwhile. So a second thread, which touches no file system, looks for pending signals and
// calls their handlers instead of the main thread.

constexpr std::chrono::milliseconds kLookInterval(100);
constexpr int kToleratedLooks = 2;

using Clock = std::chrono::steady_clock;
constexpr Clock::rep kNever = 0;
std::atomic<Clock::rep> timeLimit = kNever;
std::atomic<bool> answersSignals = false;
pthread_t mainThread;

extern "C" void answerSignal(int) {
    answersSignals = true;
}

[[noreturn]] void endOverdue() {
    constexpr std::string_view text = "fscan: time ran out while a file system does not answer\n";
    removeFiles(SIGALRM);
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    _exit(exitCode(ExitStatus::incomplete));
}

class PendingSignals {
public:
    void look() {
        sigset_t pending;
        sigpending(&pending);
        for (std::size_t i = 0; i < kWatched.size(); ++i) {
            looks_[i] = sigismember(&pending, kWatched[i]) == 1 ? looks_[i] + 1 : 0;
            if (looks_[i] > kToleratedLooks) handleHere(kWatched[i]);
        }
    }

private:
    static void handleHere(int signal) {
        sigset_t one;
        sigemptyset(&one);
        sigaddset(&one, signal);
        const timespec now{};
        struct sigaction action {};
        if (sigtimedwait(&one, nullptr, &now) != signal) return;  // the main thread took it
        if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) return;
        if (action.sa_handler == SIG_DFL)
            endBy(signal);
        else
            action.sa_handler(signal);
    }

    static constexpr std::array<int, 5> kWatched = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM};
    std::array<int, kWatched.size()> looks_{};
};

// Ends a process that is blocked beyond its time limit. It first sends the main thread a signal
// that interrupts nothing and waits for its handler: the thread may only be waiting for the
// reader of the output.
class LimitWatch {
public:
    void look() {
        constexpr Clock::duration grace = std::chrono::seconds(kGraceSeconds);
        const Clock::rep limit = timeLimit;
        if (limit == kNever || Clock::now() < Clock::time_point(Clock::duration(limit)) + grace) {
            asked_ = 0;
        } else if (asked_++ == 0) {
            answersSignals = false;
            pthread_kill(mainThread, SIGURG);
        } else if (!answersSignals && asked_ * kLookInterval > grace) {
            endOverdue();
        }
    }

private:
    int asked_ = 0;
};

void* watchSignals(void*) {
    PendingSignals signals;
    LimitWatch limit;
    for (;;) {
        std::this_thread::sleep_for(kLookInterval);
        signals.look();
        limit.look();
    }
}

// The thread runs to the end of the process. Where it cannot be made, the program goes on
// without it.
void startWatch() {
    static bool started = false;
    if (std::exchange(started, true)) return;
    mainThread = pthread_self();
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, watchSignals, nullptr) == 0) pthread_detach(thread);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

TimeLimit::TimeLimit(std::optional<unsigned> milliseconds) {
    if (!milliseconds) return;
    startWatch();
    struct sigaction answering {};
    answering.sa_handler = answerSignal;
    answering.sa_flags = SA_RESTART;
    sigaction(SIGURG, &answering, nullptr);
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(*milliseconds);
    timeLimit = end.time_since_epoch().count();
}

TimeLimit::~TimeLimit() {
    timeLimit = kNever;
}

// Without SA_RESTART: a signal must also end a write that waits for a slow reader.
Interruption::Interruption() {
    startWatch();
    fscanner::FsResourceManager::getInstance();  // made before a handler asks for it
    handle(SIGALRM, endAfterGrace);
    for (const int signal : kEnding)
        if (!isIgnored(signal)) handle(signal, note);
    pipeEnds = !isIgnored(SIGPIPE);
    if (pipeEnds) handle(SIGPIPE, doNothing);
}

Interruption::~Interruption() {
    alarm(0);
    for (const int signal : kEnding)
        if (!isIgnored(signal)) handle(signal, endBy);
    if (pipeEnds) handle(SIGPIPE, endBy);
}

int Interruption::signal() {
    return noted;
}

int Interruption::ofLostReader() {
    return pipeEnds ? SIGPIPE : 0;
}

void Interruption::answering() {
    if (isAnswering != 0) return;
    isAnswering = 1;
    alarm(0);
}

void Interruption::endIfPending(bool readerGone) const {
    if (noted != 0) endBy(noted);
    if (readerGone && pipeEnds) endBy(SIGPIPE);
}

}  // namespace fscan
