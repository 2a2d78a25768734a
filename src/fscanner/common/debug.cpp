#include "fscanner/common/debug.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "fscanner/common/utf8.h"

namespace fscanner {

bool debugInfo = false;
char debugFile[1024] = "";

// ---- Formatting -------------------------------------------------------------

namespace {

/// One conversion of a format, taken apart: "%-*.3ld".
struct Conversion {
    std::string flags;
    int width = 0;
    int precision = -1;  // -1: none
    std::string length;  // "", "hh", "h", "l", "ll", "L", "q", "j", "z", "Z" or "t"
    char type = 0;

    bool leftAligned() const { return flags.find('-') != flags.npos; }
    bool wide() const { return length == "l" || type == 'S' || type == 'C'; }
};

/// Walks a format and its arguments and builds the text. snprintf formats the
/// numbers, one conversion at a time.
class Formatter {
public:
    explicit Formatter(std::va_list arguments) { va_copy(arguments_, arguments); }
    Formatter(const Formatter&) = delete;
    Formatter& operator=(const Formatter&) = delete;
    ~Formatter() { va_end(arguments_); }

    std::string run(const char* format) {
        while (const char* percent = std::strchr(format, '%')) {
            out_.append(format, percent);
            Conversion conversion;
            const char* end = parse(percent + 1, conversion);
            if (!convert(conversion)) out_.append(percent, end);  // unknown: copy it unchanged
            format = end;
        }
        return std::move(out_.append(format));
    }

private:
    template <typename T>
    T next() {
        // The analyzer does not see that the constructor has set the member.
        return va_arg(arguments_, T);  // NOLINT(clang-analyzer-valist.Uninitialized)
    }

    /// Reads the conversion behind a "%", with its "*" arguments; returns its end.
    const char* parse(const char* at, Conversion& conversion) {
        const std::size_t flags = std::strspn(at, "-+ #0'I");
        conversion.flags.assign(at, flags);
        at = parseNumber(at + flags, conversion.width);
        if (conversion.width < 0) {
            conversion.flags += '-';
            conversion.width = -conversion.width;
        }
        if (*at == '.') {
            conversion.precision = 0;
            at = parseNumber(at + 1, conversion.precision);
        }
        const std::size_t length = std::strspn(at, "hlLqjzZt");
        conversion.length.assign(at, length);
        at += length;
        conversion.type = *at;
        return *at != 0 ? at + 1 : at;
    }

    const char* parseNumber(const char* at, int& number) {
        if (*at == '*') {
            number = std::clamp(next<int>(), -kMaxField, kMaxField);
            return at + 1;
        }
        for (; *at >= '0' && *at <= '9'; ++at)
            number = std::min(number * 10 + (*at - '0'), kMaxField);
        return at;
    }

    bool convert(const Conversion& conversion) {
        switch (conversion.type) {
            case 'd':
            case 'i':
                return integer(conversion);
            case 'o':
            case 'u':
            case 'x':
            case 'X':
                return integer(conversion);
            case 'a':
            case 'A':
            case 'e':
            case 'E':
            case 'f':
            case 'F':
            case 'g':
            case 'G':
                return floating(conversion);
            case 'c':
            case 'C':
                return character(conversion);
            case 's':
            case 'S':
                return text(conversion);
            case 'p':
                return delegate(conversion, next<void*>());
            case 'm':
                return padded(conversion, std::strerror(errno_));
            case 'n':
                return static_cast<void>(next<void*>()), true;
            case '%':
                return out_ += '%', true;
            default:
                return false;
        }
    }

    // An unsigned argument may be read as the signed type of its size, and snprintf gets the same
    // bits. "%hhd" and "%hd" arguments are promoted to int.
    bool integer(const Conversion& conversion) {
        const std::string& length = conversion.length;
        if (length == "l") return delegate(conversion, next<long>());
        if (length == "ll" || length == "L" || length == "q")
            return delegate(conversion, next<long long>());
        if (length == "j") return delegate(conversion, next<std::intmax_t>());
        if (length == "z" || length == "Z") return delegate(conversion, next<std::size_t>());
        if (length == "t") return delegate(conversion, next<std::ptrdiff_t>());
        return delegate(conversion, next<int>());
    }

    bool floating(const Conversion& conversion) {
        if (conversion.length == "L") return delegate(conversion, next<long double>());
        return delegate(conversion, next<double>());
    }

    bool character(const Conversion& conversion) {
        Conversion whole = conversion;
        whole.precision = -1;
        if (!conversion.wide()) {
            const char c = static_cast<char>(next<int>());
            return padded(whole, std::string_view(&c, 1));
        }
        const auto c = static_cast<wchar_t>(next<std::wint_t>());
        return padded(whole, toMultibyte(std::wstring_view(&c, 1)));
    }

    bool text(const Conversion& conversion) {
        if (conversion.wide()) return wideText(conversion, next<const wchar_t*>());
        const char* s = next<const char*>();
        if (s == nullptr) return nullText(conversion);
        if (conversion.precision < 0) return padded(conversion, s);
        const auto limit = static_cast<std::size_t>(conversion.precision);
        return padded(conversion, std::string_view(s, strnlen(s, limit)));
    }

    bool wideText(const Conversion& conversion, const wchar_t* s) {
        if (s == nullptr) return nullText(conversion);
        if (conversion.precision < 0) return padded(conversion, toMultibyte(s));
        const auto limit = static_cast<std::size_t>(conversion.precision);
        std::string bytes;
        for (std::size_t i = 0; i < limit && s[i] != 0; ++i) {
            const std::size_t whole = bytes.size();
            appendMultibyte(bytes, std::wstring_view(s + i, 1));
            if (bytes.size() <= limit) continue;
            bytes.resize(whole);
            break;
        }
        return padded(conversion, bytes);
    }

    // As in glibc: when the precision is too small for "(null)", nothing is written.
    bool nullText(const Conversion& conversion) {
        const bool fits = conversion.precision < 0 || conversion.precision >= 6;
        return padded(conversion, fits ? "(null)" : "");
    }

    bool padded(const Conversion& conversion, std::string_view bytes) {
        const auto width = static_cast<std::size_t>(conversion.width);
        const std::size_t padding = width > bytes.size() ? width - bytes.size() : 0;
        if (!conversion.leftAligned()) out_.append(padding, ' ');
        out_.append(bytes);
        if (conversion.leftAligned()) out_.append(padding, ' ');
        return true;
    }

    template <typename T>
    bool delegate(const Conversion& conversion, T argument) {
        std::string format = "%" + conversion.flags;
        if (conversion.width > 0) format += std::to_string(conversion.width);
        if (conversion.precision >= 0)
            format.append(".").append(std::to_string(conversion.precision));
        format.append(conversion.length).append(1, conversion.type);

        char room[128];
        const int length = std::snprintf(room, sizeof room, format.c_str(), argument);
        if (length < 0) return false;
        const auto size = static_cast<std::size_t>(length);
        if (size < sizeof room) {
            out_.append(room, size);
            return true;
        }
        std::string large(size + 1, 0);
        std::snprintf(large.data(), large.size(), format.c_str(), argument);
        out_.append(large, 0, size);
        return true;
    }

    // Limit of a width or precision. `number * 10 + 9` cannot overflow below it.
    static constexpr int kMaxField = INT_MAX / 16;

    const int errno_ = errno;  // for "%m": formatting may change errno

    std::va_list arguments_;
    std::string out_;
};

/// Formats like `vsnprintf`, except for wide arguments ("%S", "%ls", "%C", "%lc"):
/// libc fails for the whole text at the first wide character that the locale
/// cannot encode, so they are converted here. Widths and precisions count bytes;
/// a precision never cuts a character in two. "%n" stores nothing, and positional
/// arguments ("%1$s") are copied unchanged. Throws `std::bad_alloc`.
std::string formatText(const char* format, std::va_list arguments) {
    return Formatter(arguments).run(format);
}

}  // namespace

// ---- The log ----------------------------------------------------------------

namespace {

bool setPath(const char* path) {
    const std::size_t length = path != nullptr ? std::strlen(path) : sizeof debugFile;
    if (length >= sizeof debugFile) return false;
    std::memmove(debugFile, path, length + 1);  // `path` may be debugFile itself
    return true;
}

bool createEmpty(const char* path) {
    const int fd = open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    close(fd);
    return true;
}

// Normally one write per line: with O_APPEND, lines of several processes do not mix.
void appendToLog(std::string_view text) {
    const int fd = open(debugFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (fd < 0) return;
    while (!text.empty()) {
        const ssize_t written = write(fd, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    close(fd);
}

}  // namespace

bool startDebug(const char* path) {
    debugInfo = setPath(path) && createEmpty(debugFile);
    if (!debugInfo) debugFile[0] = 0;
    return debugInfo;
}

bool startDebug() {
    return debugInfo = debugFile[0] != 0;
}

void stopDebug() {
    debugInfo = false;
}

void debug(const char* format, ...) {
    if (!debugInfo) return;
    const int savedErrno = errno;
    std::va_list arguments;
    va_start(arguments, format);
    try {
        appendToLog(formatText(format, arguments));
    } catch (const std::bad_alloc&) {
        // The line is lost, as when the file cannot be opened.
    }
    va_end(arguments);
    errno = savedErrno;
}

}  // namespace fscanner
