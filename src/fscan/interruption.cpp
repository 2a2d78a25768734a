#include "interruption.h"

#include <unistd.h>

#include <array>
#include <csignal>

#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_resource_manager.h"

namespace fscan {

namespace {

// How long a search may take to end before it is left as it is.
constexpr unsigned patienceSeconds = 3;

constexpr std::array<int, 3> ending = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t noted = 0;
volatile std::sig_atomic_t isAnswering = 0;
bool pipeEnds = false;

void unblockDefault(int signal) {
    std::signal(signal, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

// Twice where there is a log: its lines take memory, for which a handler may have to
// wait for ever. By then the files are gone, and an alarm ends the process.
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

// As the signal would have ended the process, but without the library's temporary files.
extern "C" void endBy(int signal) {
    removeFiles(signal);
    unblockDefault(signal);
    raise(signal);
}

extern "C" void note(int signal) {
    if (noted != 0) endBy(signal);
    noted = signal;
    if (isAnswering == 0) alarm(patienceSeconds);
}

// Not SIG_IGN, which the commands that are run would inherit.
extern "C" void passOver(int) {}

extern "C" void losePatience(int) {
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

}  // namespace

void removeFilesOnSignals() {
    fscanner::FsResourceManager::getInstance();  // made before a handler asks for it
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE})
        if (!isIgnored(signal)) handle(signal, endBy);
}

// Without SA_RESTART: a write that waits for a slow reader has to end, too.
Interruption::Interruption() {
    fscanner::FsResourceManager::getInstance();
    handle(SIGALRM, losePatience);
    for (const int signal : ending)
        if (!isIgnored(signal)) handle(signal, note);
    pipeEnds = !isIgnored(SIGPIPE);
    if (pipeEnds) handle(SIGPIPE, passOver);
}

Interruption::~Interruption() {
    alarm(0);
    for (const int signal : ending)
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
