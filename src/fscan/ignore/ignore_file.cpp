/// How git reads a rule, step by step: the ending of the line, blanks at its end, "!", the "/" at
/// its end, the literal up to the first special character, and the wildcards behind that. The
/// wildcards become a regular expression over bytes, so that no rule takes more than linear
/// time.

#include "fscan/ignore/ignore_file.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <algorithm>
#include <array>
#include <bitset>
#include <optional>
#include <utility>

namespace fscan {

namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kSpecial = "*?[\\";
constexpr int kMaximumMemory = 1 << 20;

using Bytes = std::bitset<256>;

template <class Holds>
Bytes bytesWhere(Holds holds) {
    Bytes bytes;
    for (unsigned byte = 0; byte < 0x80; ++byte) bytes[byte] = holds(static_cast<char>(byte));
    return bytes;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isLower(char c) {
    return c >= 'a' && c <= 'z';
}
bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
bool isLetter(char c) {
    return isLower(c) || isUpper(c);
}
bool isAlnum(char c) {
    return isLetter(c) || isDigit(c);
}
bool isGraph(char c) {
    return c > 0x20 && c < 0x7F;
}

/// The bytes of a named class, such as "alpha"; the locale does not matter.
std::optional<Bytes> namedClass(std::string_view name) {
    using Test = bool (*)(char);
    static constexpr std::array<std::pair<std::string_view, Test>, 12> kClasses = {{
        {"alnum", isAlnum},
        {"alpha", isLetter},
        {"blank", [](char c) { return c == ' ' || c == '\t'; }},
        {"cntrl", [](char c) { return c < 0x20 || c == 0x7F; }},
        {"digit", isDigit},
        {"graph", isGraph},
        {"lower", isLower},
        {"print", [](char c) { return c == ' ' || isGraph(c); }},
        {"punct", [](char c) { return isGraph(c) && !isAlnum(c); }},
        {"space", [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }},
        {"upper", isUpper},
        {"xdigit", [](char c) { return isDigit(c) || (isLetter(c) && (c | 0x20) <= 'f'); }},
    }};
    for (const auto& [known, test] : kClasses)
        if (known == name) return bytesWhere(test);
    return std::nullopt;
}

/// Reads a set, such as "[!a-z]".
class SetReader {
public:
    /// `at`: behind the "[", and then behind the "]".
    SetReader(std::string_view text, std::size_t& at) : text_(text), at_(at) {}

    /// Nothing where the set is not closed or names no known class: git lets such a rule match
    /// nothing.
    std::optional<Bytes> read() {
        const bool negated = at_ < text_.size() && (text_[at_] == '!' || text_[at_] == '^');
        if (negated) ++at_;
        // A "]" in the first place stands for itself.
        for (std::size_t first = at_; at_ == first || !ends();)
            if (!takeItem()) return std::nullopt;
        ++at_;
        if (negated) set_.flip();
        set_['/'] = false;
        return set_;
    }

private:
    bool ends() const { return at_ < text_.size() && text_[at_] == ']'; }
    bool startsWith(std::string_view start) const { return text_.substr(at_).starts_with(start); }

    bool takeItem() {
        if (startsWith("[:") && isClass()) return takeClass();
        const bool range =
            startsWith("-") && last_ != 0 && at_ + 1 < text_.size() && text_[at_ + 1] != ']';
        if (range) ++at_;
        if (startsWith("\\")) ++at_;
        if (at_ == text_.size()) return false;
        const auto byte = static_cast<unsigned char>(text_[at_++]);
        for (unsigned c = range ? last_ : byte; c <= byte; ++c) set_[c] = true;
        last_ = range ? 0 : byte;
        return true;
    }

    /// Whether ":]" is the next that ends with "]".
    bool isClass() const {
        const std::size_t end = text_.find(']', at_ + 2);
        return end == kNone || (end > at_ + 2 && text_[end - 1] == ':');
    }

    bool takeClass() {
        const std::size_t end = text_.find(']', at_);
        if (end == kNone) return false;
        const std::optional<Bytes> bytes = namedClass(text_.substr(at_ + 2, end - at_ - 3));
        if (!bytes) return false;
        set_ |= *bytes;
        last_ = 0;
        at_ = end + 1;
        return true;
    }

    std::string_view text_;
    std::size_t& at_;
    Bytes set_;
    unsigned char last_ = 0;  // that a range may begin with; 0: none
};

std::string quoted(unsigned byte) {
    return fmt::format("\\x{:02x}", byte);
}

std::string setText(const Bytes& set) {
    if (set.none()) return "[^\\x00-\\xff]";
    std::string text = "[";
    for (unsigned byte = 0; byte < set.size(); ++byte)
        if (set[byte]) text += quoted(byte);
    return text + ']';
}

/// Makes a regular expression of the wildcards of a rule.
class WildcardReader {
public:
    explicit WildcardReader(std::string_view text) : text_(text) {}

    /// Nothing where no text matches.
    std::optional<std::string> read() {
        while (at_ < text_.size())
            if (!takeNext()) return std::nullopt;
        return regex_;
    }

private:
    bool takeNext() {
        const char c = text_[at_++];
        if (c == '*') {
            takeStars();
        } else if (c == '?') {
            regex_ += "[^/]";
        } else if (c == '[') {
            const std::optional<Bytes> set = SetReader(text_, at_).read();
            if (!set) return false;
            regex_ += setText(*set);
        } else {
            if (c == '\\' && at_ == text_.size()) return false;
            const char meant = c == '\\' ? text_[at_++] : c;
            regex_ += quoted(static_cast<unsigned char>(meant));
        }
        return true;
    }

    /// Two stars between slashes, or at an end, are any number of directories.
    void takeStars() {
        const std::size_t start = at_ - 1;
        at_ = std::min(text_.find_first_not_of('*', at_), text_.size());
        const std::string_view rest = text_.substr(at_);
        const bool free = start == 0 || text_[start - 1] == '/';
        if (at_ - start < 2 || !free) {
            regex_ += "[^/]*";
        } else if (rest.starts_with('/')) {
            regex_ += "(?:.*/)?";
            ++at_;
        } else {
            regex_ += rest.empty() || rest.starts_with("\\/") ? ".*" : "[^/]*";
        }
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::string regex_;
};

std::shared_ptr<const re2::RE2> compiled(const std::string& regex) {
    re2::RE2::Options options(re2::RE2::Latin1);
    options.set_log_errors(false);
    options.set_max_mem(kMaximumMemory);
    options.set_dot_nl(true);
    options.set_never_capture(true);
    auto made = std::make_shared<const re2::RE2>(regex, options);
    return made->ok() ? made : nullptr;
}

/// Without the blanks at its end that are not quoted.
std::string_view withoutFinalBlanks(std::string_view line) {
    std::size_t end = 0;
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == ' ') continue;
        if (line[at] == '\\' && ++at == line.size()) return line;
        end = at + 1;
    }
    return line.substr(0, end);
}

}  // namespace

IgnoreFile::IgnoreFile(std::string_view text) {
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (text.starts_with(mark)) text.remove_prefix(mark.size());
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (!line.starts_with('#')) add(withoutFinalBlanks(line.substr(0, line.find('\0'))));
    }
}

void IgnoreFile::add(std::string_view line) {
    Rule rule;
    const auto take = [&line](bool there, auto remove) {
        if (there) remove(line);
        return there;
    };
    const auto first = [](std::string_view& text) { text.remove_prefix(1); };
    const auto last = [](std::string_view& text) { text.remove_suffix(1); };
    rule.negated = take(line.starts_with('!'), first);
    rule.directoriesOnly = take(line.ends_with('/'), last);
    rule.namesOnly = line.find('/') == kNone;
    take(line.starts_with('/'), first);
    if (line.empty()) return;
    rule.suffix = rule.namesOnly && line[0] == '*' && line.find_first_of(kSpecial, 1) == kNone;
    if (rule.suffix) {
        rule.literal = line.substr(1);
    } else {
        const std::size_t special = std::min(line.find_first_of(kSpecial), line.size());
        rule.literal = line.substr(0, special);
        if (special < line.size()) {
            const std::optional<std::string> regex = WildcardReader(line.substr(special)).read();
            if (regex) rule.rest = compiled(*regex);
            if (rule.rest == nullptr) return;
        }
    }
    rules_.push_back(std::move(rule));
}

bool IgnoreFile::Rule::matches(std::string_view text) const {
    if (suffix) return text.ends_with(literal);
    if (!text.starts_with(literal)) return false;
    text.remove_prefix(literal.size());
    if (rest == nullptr) return text.empty();
    return rest->Match(text, 0, text.size(), re2::RE2::ANCHOR_BOTH, nullptr, 0);
}

IgnoreFile::Verdict IgnoreFile::verdict(std::string_view path, bool isDirectory) const {
    const std::string_view name = path.substr(path.rfind('/') + 1);
    const auto rule = std::find_if(rules_.rbegin(), rules_.rend(), [&](const Rule& one) {
        return (isDirectory || !one.directoriesOnly) && one.matches(one.namesOnly ? name : path);
    });
    if (rule == rules_.rend()) return Verdict::none;
    return rule->negated ? Verdict::included : Verdict::ignored;
}

}  // namespace fscan
