#include "fscan/output/messages.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstring>
#include <cwchar>

#include "fscan/output/output.h"
#include "fscan/text/text.h"

namespace fscan {

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
    err.write("fscan: ");
    err.writeForeign(text);
    err.write("\n");
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

}  // namespace fscan
