#include "fscan/screen/screen.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <utility>

#define NCURSES_WIDECHAR 1
#define NCURSES_NOMACROS 1
#include <ncurses.h>

#include "fscan/text/text.h"

namespace fscan {

namespace {

// What is to be given back when a signal ends the process.
int drawnOn = -1;
termios before{};

constexpr std::array kEnding = {SIGTERM, SIGHUP, SIGINT, SIGQUIT, SIGSEGV, SIGABRT};

// By calls that a signal handler may make. The text leaves the second screen and shows the cursor.
void giveBack(int signal) {
    constexpr std::string_view kLeave = "\x1B[?1049l\x1B[?25h\x1B[0m\r";
    if (drawnOn >= 0) {
        (void)!::write(drawnOn, kLeave.data(), kLeave.size());
        ::tcsetattr(drawnOn, TCSANOW, &before);
    }
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

attr_t attributesOf(Style style) {
    switch (style) {
        case Style::bold:
            return A_BOLD;
        case Style::dim:
            return A_DIM;
        case Style::chosen:
            return A_REVERSE;
        case Style::wrong:
            return A_BOLD;
        default:
            return A_NORMAL;
    }
}

constexpr wint_t control(char letter) {
    return static_cast<wint_t>(letter & 0x1F);
}

using Meaning = std::pair<wint_t, Key>;
constexpr Meaning kFunctionKeys[] = {
    {KEY_UP, Key::up},          {KEY_DOWN, Key::down},    {KEY_PPAGE, Key::pageUp},
    {KEY_NPAGE, Key::pageDown}, {KEY_LEFT, Key::left},    {KEY_RIGHT, Key::right},
    {KEY_HOME, Key::home},      {KEY_END, Key::end},      {KEY_BACKSPACE, Key::erase},
    {KEY_DC, Key::deleteNext},  {KEY_ENTER, Key::accept}, {KEY_RESIZE, Key::resize},
    {KEY_F(2), Key::sort},      {KEY_F(3), Key::preview}, {KEY_F(5), Key::refresh}};
constexpr Meaning kControls[] = {{'\r', Key::accept},
                                 {'\n', Key::accept},
                                 {'\t', Key::mark},
                                 {27, Key::cancel},
                                 {control('C'), Key::cancel},
                                 {control('G'), Key::cancel},
                                 {control('H'), Key::erase},
                                 {127, Key::erase},
                                 {control('W'), Key::eraseWord},
                                 {control('U'), Key::eraseAll},
                                 {control('P'), Key::up},
                                 {control('N'), Key::down},
                                 {control('A'), Key::home},
                                 {control('E'), Key::end},
                                 {control('S'), Key::sort},
                                 {control('R'), Key::refresh},
                                 {control('T'), Key::preview},
                                 {control('Z'), Key::suspend}};

Key meaningOf(wint_t code, std::span<const Meaning> table) {
    for (const auto& [known, key] : table)
        if (known == code) return key;
    return Key::none;
}

Input inputOf(wint_t character) {
    const Key key = meaningOf(character, kControls);
    if (key != Key::none || character < ' ') return {key};
    return {Key::text, static_cast<wchar_t>(character)};
}

int widthOfOne(wchar_t c) {
    return std::max(::wcwidth(c), 0);
}

}  // namespace

int widthOf(std::wstring_view text) {
    int width = 0;
    for (const wchar_t c : text) width += widthOfOne(c);
    return width;
}

bool Screen::isThere() {
    const int terminal = ::open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (terminal >= 0) ::close(terminal);
    const char* const name = std::getenv("TERM");
    return terminal >= 0 && name != nullptr && std::string_view(name) != "dumb";
}

Screen::Screen() {
    std::FILE* const file = std::fopen("/dev/tty", "r+e");
    if (file == nullptr) return;
    terminal_ = ::fileno(file);
    if (::tcgetattr(terminal_, &before) != 0) return;
    ::set_escdelay(25);
    SCREEN* const screen = ::newterm(nullptr, file, file);
    if (screen == nullptr) return;
    ::set_term(screen);
    drawnOn = terminal_;
    for (const int signal : kEnding) ::signal(signal, giveBack);
    ::raw();
    ::noecho();
    ::nonl();
    ::keypad(stdscr, TRUE);
    ::nodelay(stdscr, TRUE);
    ::intrflush(stdscr, FALSE);
    good_ = true;
}

Screen::~Screen() {
    if (!good_) return;
    ::endwin();
    drawnOn = -1;
    for (const int signal : kEnding) ::signal(signal, SIG_DFL);
}

Input Screen::read() {
    wint_t character = 0;
    const int what = ::wget_wch(stdscr, &character);
    if (what == KEY_CODE_YES) return {meaningOf(character, kFunctionKeys)};
    return what == OK ? inputOf(character) : Input{};
}

int Screen::rows() const {
    return getmaxy(stdscr);
}

int Screen::columns() const {
    return getmaxx(stdscr);
}

void Screen::clear() {
    ::werase(stdscr);
}

int Screen::put(int row, int column, std::string_view text, Style style) {
    if (row < 0 || row >= rows()) return column;
    ::wattrset(stdscr, static_cast<int>(attributesOf(style)));
    const std::wstring wide = toWide(escaped(text));
    for (const wchar_t c : wide) {
        const int width = widthOfOne(c);
        // The last place of the screen would scroll it.
        if (column + width > columns() - 1) break;
        if (width > 0) ::mvwaddnwstr(stdscr, row, column, &c, 1);
        column += width;
    }
    ::wattrset(stdscr, A_NORMAL);
    return column;
}

int Screen::putEnd(int row, int column, std::string_view text, Style style, int width) {
    const std::wstring wide = toWide(escaped(text));
    std::wstring_view rest = wide;
    if (widthOf(rest) <= width) return put(row, column, text, style);
    while (!rest.empty() && widthOf(rest) > width - 1) rest.remove_prefix(1);
    return put(row, column, "<" + toBytes(rest), style);
}

void Screen::fill(int row, int column, Style style) {
    ::wattrset(stdscr, static_cast<int>(attributesOf(style)));
    for (; column < columns() - 1; ++column) mvwaddch(stdscr, row, column, ' ');
    ::wattrset(stdscr, A_NORMAL);
}

void Screen::setCursor(int row, int column) {
    ::wmove(stdscr, row, std::min(column, columns() - 1));
}

void Screen::show() {
    ::wrefresh(stdscr);
}

void Screen::suspend() {
    ::endwin();
    ::raise(SIGTSTP);
    ::wrefresh(stdscr);
}

}  // namespace fscan
