#include "fscan/output/progress_line.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cwchar>
#include <string>
#include <string_view>
#include <utility>

#include "fscan/output/output.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_scan_observer.h"

namespace fscan {

namespace {

constexpr unsigned kIntervalMilliseconds = 100;
// Where standard error is no terminal, only longer waits are told: most last a moment.
constexpr unsigned kWaitBeforeNote = 1500;
// Room for a "^C" that the terminal may add: a line that wraps cannot be erased.
constexpr int kColumnsForKeys = 3;

/// The end of the text, as much as fits into so many columns.
std::string tail(const std::wstring& text, int room) {
    std::size_t first = text.size();
    for (; first > 0; --first) {
        room -= wcwidth(text[first - 1]);
        if (room < 0) break;
    }
    return toBytes(std::wstring_view(text).substr(first));
}

// "[###       ]  31 %  ", or nothing where it is not known how much there is.
std::string barOf(const fscanner::FsScanProgress& progress) {
    constexpr unsigned long long kMost = 99;  // there may be more than there were
    if (progress.expectedDirectories == 0) return "";
    const unsigned long long percent =
        std::min(progress.directories * 100 / progress.expectedDirectories, kMost);
    const std::string bar(percent / 10, '#');
    return fmt::format("[{:10}] {:2} %  ", bar, percent);
}

// Writes nothing to a stopped terminal, which would block the search.
void writeError(std::string_view text) {
    if (!takesText(STDERR_FILENO)) return;
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

ProgressLine::ProgressLine(bool quiet)
    : quiet_(quiet), terminal_(!quiet && isatty(STDERR_FILENO) == 1 && terminalTakesCommands()) {}

void ProgressLine::show(const fscanner::FsScanProgress& progress) {
    const unsigned now = progress.elapsedMilliseconds;
    if (!terminal_ || now < kIntervalMilliseconds) return;
    if (now < shownAt_) shownAt_ = 0;  // another scan
    if (now - shownAt_ < kIntervalMilliseconds) return;
    const std::string text = fmt::format("{}{} files, {} directories, {}.{} s, {} files/s  ",
                                         barOf(progress), progress.files, progress.directories,
                                         now / 1000, now / 100 % 10, progress.files * 1000 / now);
    put(text, toWide(escaped(toBytes(progress.directory))));
    shownAt_ = now;
}

void ProgressLine::showWaiting(unsigned milliseconds) {
    constexpr std::string_view text = "waiting for the cache: another process uses it";
    if (terminal_)
        put(fmt::format("{}, {}.{} s", text, milliseconds / 1000, milliseconds / 100 % 10), L"");
    else if (!quiet_ && milliseconds >= kWaitBeforeNote && !std::exchange(reported_, true))
        complain(text);
}

void ProgressLine::put(std::string_view text, const std::wstring& directory) {
    const int room = std::max(terminalColumns(STDERR_FILENO) - kColumnsForKeys, 1);
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
