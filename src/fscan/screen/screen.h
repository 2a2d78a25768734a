#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fscan {

/// The keys that mean something, but for text.
enum class Key {
    text,
    accept,
    cancel,
    mark,
    sort,
    refresh,
    preview,
    suspend,
    resize,
    up,
    down,
    pageUp,
    pageDown,
    left,
    right,
    home,
    end,
    erase,
    eraseWord,
    eraseAll,
    deleteNext,
    none
};

struct Input {
    Key key = Key::none;
    wchar_t character = 0;
};

enum class Style { plain, bold, dim, chosen, wrong };

/// The terminal of the user, whatever standard output is. While it lives, the terminal is drawn on;
/// then it is as it was, also where a signal ends the process.
class Screen {
public:
    /// Whether there is a terminal that can be drawn on.
    static bool isThere();

    Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;
    ~Screen();
    explicit operator bool() const { return good_; }

    /// Can be read when keys have come.
    int descriptor() const { return terminal_; }
    /// The next key; none if there is none yet.
    Input read();
    int rows() const;
    int columns() const;

    void clear();
    /// A text in a row, cut to the width from `column` on. Returns the column behind it.
    int put(int row, int column, std::string_view text, Style style = Style::plain);
    /// The end of a text, if not all of it fits into so many columns.
    int putEnd(int row, int column, std::string_view text, Style style, int width);
    /// Fills the row from `column` on.
    void fill(int row, int column, Style style);
    void setCursor(int row, int column);
    void show();
    /// Gives the terminal back until the process is continued.
    void suspend();

private:
    int terminal_ = -1;
    bool good_ = false;
};

/// The columns that the text takes.
int widthOf(std::wstring_view text);

}  // namespace fscan
