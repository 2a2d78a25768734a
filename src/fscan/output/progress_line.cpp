#include "fscan/output/progress_line.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cwchar>
#include <string>
#include <string_view>
#include <utility>

#include "fscan/output/messages.h"
#include "fscan/output/output.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscan {

namespace {

constexpr unsigned intervalMilliseconds = 100;
// Processes that take turns wait for moments, and most searches for a second at most. A log
// need not hear of each.
constexpr unsigned patienceMilliseconds = 1500;
constexpr int usualColumns = 80;
// A line that wraps cannot be erased, and a "^C" may be put behind it.
constexpr int columnsForKeys = 3;

int columns() {
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return known ? size.ws_col : usualColumns;
}

/// The text's end that fits into so many columns.
std::string tail(const std::wstring& text, int room) {
    std::size_t first = text.size();
    for (; first > 0; --first) {
        room -= wcwidth(text[first - 1]);
        if (room < 0) break;
    }
    return toBytes(std::wstring_view(text).substr(first));
}

// A terminal that was stopped would stop the search.
void writeError(std::string_view text) {
    if (!takesText(STDERR_FILENO)) return;
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

ProgressLine::ProgressLine(bool quiet)
    : quiet_(quiet), terminal_(!quiet && isatty(STDERR_FILENO) == 1 && terminalTakesCommands()) {}

void ProgressLine::show(const fscanner::FsScanProgress& progress) {
    const unsigned now = progress.elapsedMilliseconds;
    if (!terminal_ || now < intervalMilliseconds) return;
    if (now < shownAt_) shownAt_ = 0;  // another scan
    if (now - shownAt_ < intervalMilliseconds) return;
    const std::string text = fmt::format("{} files, {} directories, {}.{} s  ", progress.files,
                                         progress.directories, now / 1000, now / 100 % 10);
    put(text, toWide(escaped(toBytes(progress.directory))));
    shownAt_ = now;
}

void ProgressLine::showWaiting(unsigned milliseconds) {
    constexpr std::string_view text = "waiting for the cache: another process uses it";
    if (terminal_)
        put(fmt::format("{}, {}.{} s", text, milliseconds / 1000, milliseconds / 100 % 10), L"");
    else if (!quiet_ && milliseconds >= patienceMilliseconds && !std::exchange(told_, true))
        complain(text);
}

void ProgressLine::put(std::string_view text, const std::wstring& directory) {
    const int room = std::max(columns() - columnsForKeys, 1);
    text = text.substr(0, static_cast<std::size_t>(room));
    writeError(
        fmt::format("\r\x1B[K{}{}", text, tail(directory, room - static_cast<int>(text.size()))));
    shown_ = true;
}

void ProgressLine::erase() {
    if (shown_) writeError("\r\x1B[K");
    shown_ = false;
}

}  // namespace fscan
