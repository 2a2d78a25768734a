#include "fscanner/fs/config_file.h"

#include <algorithm>
#include <utility>

namespace fscanner {

namespace {

constexpr std::string_view BLANKS = " \t\r";
constexpr std::string_view ORIGIN = "$ORIGIN";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == text.npos) return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return trimmed(line);
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == path.npos ? "." : path.substr(0, slash);
}

class Parser {
public:
    explicit Parser(const std::string& path) : path_(path) {}

    void line(std::string_view text) {
        ++number_;
        if (text.empty() || text[0] == '#') return;
        const bool opens = text[0] == '[';
        if (opens) section_.clear();
        const char* wrong = text.find('\0') != text.npos ? "a zero byte"
                            : opens                      ? section(text)
                                                         : setting(text);
        if (wrong != nullptr && settings_.error.empty())
            settings_.error = path_ + ":" + std::to_string(number_) + ": " + wrong;
    }
    ConfigSettings take() { return std::move(settings_); }

private:
    // Each returns what is wrong with the line, or null.
    const char* section(std::string_view text) {
        if (text.back() != ']') return "a section has no \"]\" at its end";
        section_ = trimmed(text.substr(1, text.size() - 2));
        return section_.empty() ? "a section has no name" : nullptr;
    }
    const char* setting(std::string_view text) {
        const std::size_t equals = text.find('=');
        if (equals == text.npos) return "neither \"key = value\" nor \"[section]\"";
        const std::string_view key = trimmed(text.substr(0, equals));
        if (key.empty()) return "a value has no key";
        if (section_.empty()) return "a key stands before any section";
        settings_.values[section_ + "." + std::string(key)] =
            expanded(trimmed(text.substr(equals + 1)));
        return nullptr;
    }
    std::string expanded(std::string_view value) const {
        const std::string_view rest = value.substr(std::min(ORIGIN.size(), value.size()));
        if (!value.starts_with(ORIGIN) || !(rest.empty() || rest[0] == '/'))
            return std::string(value);
        return directoryOf(path_).append(rest);
    }

    const std::string& path_;
    unsigned number_ = 0;
    std::string section_;
    ConfigSettings settings_;
};

}  // namespace

ConfigSettings parseConfig(std::string_view text, const std::string& path) {
    Parser parser(path);
    while (!text.empty()) parser.line(takeLine(text));
    return parser.take();
}

}  // namespace fscanner
