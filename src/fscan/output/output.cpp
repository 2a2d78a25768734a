#include "fscan/output/output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "fscan/process/interruption.h"
#include "fscan/text/text.h"

namespace fscan {

namespace {
constexpr std::size_t kPieceSize = 64 * 1024;

/// Whether the descriptor takes bytes within that time. A signal ends the wait.
bool hasRoom(int descriptor, int milliseconds) {
    pollfd wait{descriptor, POLLOUT, 0};
    return poll(&wait, 1, milliseconds) > 0;
}

bool isPipeOrSocket(int descriptor) {
    struct stat info {};
    return fstat(descriptor, &info) == 0 && (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode));
}

/// Opens the same file without blocking. O_NONBLOCK on the descriptor itself would change it for
/// other processes, too. -1 for a socket, and where the file may not be opened.
int openNonBlocking(int descriptor) {
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    return open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

}  // namespace

Output::Output(int descriptor)
    : descriptor_(descriptor),
      terminal_(isatty(descriptor) == 1),
      mayBlock_(terminal_ || isPipeOrSocket(descriptor)) {}

Output::~Output() {
    if (nonBlockingFile_.value_or(-1) != -1) close(*nonBlockingFile_);
}

void Output::write(std::string_view text) {
    buffer_ += text;
    if (buffer_.size() >= kPieceSize) flush();
}

void Output::writeForeign(std::string_view text) {
    if (terminal_)
        write(escaped(text));
    else
        write(text);
}

void Output::writeLine(std::string_view label, std::string_view foreign) {
    write(label);
    writeForeign(foreign);
    write("\n");
}

void Output::endRecord() {
    if (terminal_) flush();
}

void Output::flush() {
    const Wait wait = nonBlocking_ && mayBlock_ ? Wait::no : Wait::yes;
    std::string_view rest = buffer_;
    passBacklog(wait);
    passBehindBacklog(rest, wait);
    // Where the text cannot be kept, the reader is waited for.
    if (!rest.empty() && error_ == 0 && !backlog_.add(rest)) {
        passBacklog(Wait::yes);
        passBehindBacklog(rest, Wait::yes);
    }
    buffer_.clear();
}

void Output::passBacklog(Wait wait) {
    while (!backlog_.empty() && error_ == 0) {
        const std::string_view front = backlog_.front();
        if (front.empty()) return note(errno);
        const std::size_t taken = pass(front, wait);
        if (taken == 0) return;
        backlog_.drop(taken);
    }
}

/// Writes what is behind the backlog, once that is empty. `rest` becomes the part not taken.
void Output::passBehindBacklog(std::string_view& rest, Wait wait) {
    while (!rest.empty() && error_ == 0 && backlog_.empty()) {
        const std::size_t taken = pass(rest, wait);
        if (taken == 0) return;
        rest.remove_prefix(taken);
    }
}

/// Returns how many bytes were taken: with `Wait::yes`, 0 means an error.
std::size_t Output::pass(std::string_view text, Wait wait) {
    if (wait == Wait::no) return passAtOnce(text);
    while (error_ == 0) {
        const ssize_t written = ::write(descriptor_, text.data(), text.size());
        if (written > 0) return static_cast<std::size_t>(written);
        // Another process that shares the file may have set O_NONBLOCK.
        if (written < 0 && errno == EAGAIN)
            hasRoom(descriptor_, -1);
        else if (written < 0 && (errno != EINTR || Interruption::pending()))
            note(errno);
    }
    return 0;
}

/// Where only the blocking descriptor is available, a pipe with room takes PIPE_BUF bytes
/// without blocking.
std::size_t Output::passAtOnce(std::string_view text) {
    if (!nonBlockingFile_) nonBlockingFile_ = openNonBlocking(descriptor_);
    const bool waits = *nonBlockingFile_ == -1;
    if (waits && !hasRoom(descriptor_, 0)) return 0;
    if (waits) text = text.substr(0, PIPE_BUF);
    const ssize_t written =
        ::write(waits ? descriptor_ : *nonBlockingFile_, text.data(), text.size());
    if (written < 0 && errno != EAGAIN && errno != EINTR) note(errno);
    return written > 0 ? static_cast<std::size_t>(written) : 0;
}

void Output::note(int error) {
    if (error_ == 0) error_ = error;
}

bool terminalTakesCommands() {
    const char* const name = std::getenv("TERM");
    return name != nullptr && std::string_view(name) != "dumb";
}

int terminalColumns(int descriptor) {
    constexpr int kUsual = 80, kMost = 1000;
    winsize size{};
    if (ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    const char* const told = std::getenv("COLUMNS");
    const int columns = told != nullptr ? std::atoi(told) : 0;
    return columns > 0 ? std::min(columns, kMost) : kUsual;
}

bool takesText(int descriptor) {
    return hasRoom(descriptor, 0);
}

void guardStandardDescriptors() {
    for (int descriptor = 0; descriptor <= 2; ++descriptor) {
        if (fcntl(descriptor, F_GETFD) != -1) continue;
        // The lowest free descriptor is this one. Opened the wrong way round:
        // reading standard input and writing the others fail, as if closed.
        const int opened = open("/dev/null", descriptor == 0 ? O_WRONLY : O_RDONLY);
        if (opened == -1) _exit(127);
    }
}

// ---- Messages ---------------------------------------------------------------

namespace {

/// The character itself if it has a width and is harmless, else a substitute of width 1.
wchar_t visible(wchar_t c) {
    if (c == L'\t' || c == L'\n') return L' ';
    return wcwidth(c) >= 0 && !isHostile(c) ? c : L'?';
}

}  // namespace

Output& errors() {
    static Output err(STDERR_FILENO);
    return err;
}

void complain(std::string_view text, std::string_view detail) {
    Output& err = errors();
    err.writeLine("fscan: ", text);
    if (!detail.empty()) err.write(fmt::format("{}\n", detail));
    err.flush();
}

void complain(std::string_view text, int systemError) {
    complain(fmt::format("{}: {}", text, std::strerror(systemError)));
}

std::string pointAt(std::wstring_view text, std::size_t position) {
    std::wstring line;
    int column = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        line += visible(text[i]);
        if (i < position) column += wcwidth(line.back());
    }
    return fmt::format("  {}\n  {:>{}}", toBytes(line), '^', column + 1);
}

// ---- Output that waits for a slow reader ------------------------------------

namespace {

constexpr std::size_t kMemoryBound = 8 << 20;
constexpr std::size_t kReadSize = 1 << 20;

}  // namespace

bool Backlog::add(std::string_view text) {
    const bool inMemory = !hasMoreInFile() && front_.size() - taken_ + text.size() <= kMemoryBound;
    if (!inMemory) {
        if (!file_) file_.emplace();
        return file_->append(text);
    }
    // Reserved at once, so that nothing is copied to grow. Pages that are not used cost nothing.
    front_.reserve(2 * kMemoryBound);
    if (taken_ > kMemoryBound) {
        front_.erase(0, taken_);
        taken_ = 0;
    }
    front_ += text;
    return true;
}

std::string_view Backlog::front() {
    if (taken_ == front_.size() && hasMoreInFile()) {
        front_.resize(std::min(kReadSize, static_cast<std::size_t>(file_->size() - given_)));
        taken_ = 0;
        if (!file_->read(given_, front_)) front_.clear();
        given_ += static_cast<off_t>(front_.size());
    }
    return std::string_view(front_).substr(taken_);
}

void Backlog::drop(std::size_t size) {
    taken_ += size;
    if (taken_ < front_.size() || hasMoreInFile()) return;
    // The queue is empty: the next text is kept in memory again.
    front_.clear();
    taken_ = 0;
    given_ = 0;
    file_.reset();
}

}  // namespace fscan
