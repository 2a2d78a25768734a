#include "interruption.h"

#include <unistd.h>

#include <array>
#include <csignal>

namespace fscan {

namespace {

// How long a search may take to end before it is left as it is.
constexpr unsigned patienceSeconds = 3;

constexpr std::array<int, 3> ending = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t noted = 0;
volatile std::sig_atomic_t isAnswering = 0;
bool pipeEnds = false;

void endBy(int signal) {
    std::signal(signal, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    raise(signal);
}

extern "C" void note(int signal) {
    noted = signal;
    if (isAnswering == 0) alarm(patienceSeconds);
}

extern "C" void losePatience(int) {
    endBy(noted);
}

bool isIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

void handle(int signal, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigaction(signal, &action, nullptr);
}

}  // namespace

// Without SA_RESTART: a write that waits for a slow reader has to end, too.
Interruption::Interruption() {
    handle(SIGALRM, losePatience, 0);
    for (const int signal : ending)
        if (!isIgnored(signal)) handle(signal, note, static_cast<int>(SA_RESETHAND));
    pipeEnds = !isIgnored(SIGPIPE);
    handle(SIGPIPE, SIG_IGN, 0);
}

Interruption::~Interruption() {
    alarm(0);
    for (const int signal : ending)
        if (!isIgnored(signal)) handle(signal, SIG_DFL, 0);
    if (pipeEnds) handle(SIGPIPE, SIG_DFL, 0);
}

bool Interruption::pending() {
    return noted != 0;
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
