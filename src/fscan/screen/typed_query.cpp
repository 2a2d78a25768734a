#include "fscan/screen/typed_query.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace fscan {

namespace {

using Words = std::vector<std::string>;

struct Word {
    std::string text;
    std::size_t at = 0;
    bool quoted = false;
};

struct Filter {
    std::string_view begins;
    std::string_view option;
};
// The value follows what a filter begins with.
constexpr std::array kFilters = {
    Filter{"size>", "--larger"}, Filter{"size<", "--smaller"}, Filter{"size:", "--size"},
    Filter{"type:", "--type"},   Filter{"newer:", "--newer"},  Filter{"older:", "--older"},
    Filter{"owner:", "--owner"}, Filter{"group:", "--group"},  Filter{"perm:", "--perm"}};

bool hasCapitals(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return std::isupper(c); });
}

bool isGlob(std::string_view text) {
    return text.find_first_of("*?[{") != text.npos;
}

// As a part of a glob that means itself.
std::string literal(std::string_view text) {
    std::string glob;
    for (const char c : text) {
        if (std::string_view("*?[]{}\\,").find(c) != std::string_view::npos) glob += '\\';
        glob += c;
    }
    return glob;
}

class Reader {
public:
    Reader(std::string_view text, TypedError& error) : text_(text), error_(error) {}

    std::optional<TypedQuery> read() {
        Word word;
        while (next(word))
            if (!take(word)) return std::nullopt;
        if (failed_) return std::nullopt;
        finish();
        return query_;
    }

private:
    bool fail(std::size_t at, std::string message) {
        error_ = {std::move(message), at};
        failed_ = true;
        return false;
    }
    bool next(Word& word);
    bool take(const Word& word);
    bool takeFilter(const Word& word, std::string_view text, bool negated);
    void takePart(std::string_view text, bool negated);
    void add(bool negated, std::string_view option, const std::string& value);
    void finish();

    std::string_view text_;
    TypedError& error_;
    std::size_t at_ = 0;
    bool failed_ = false;
    bool cased_ = false;  // of names and parts that the search looks for
    Words words_;         // parts of the path
    TypedQuery query_;
};

bool Reader::next(Word& word) {
    while (at_ < text_.size() && text_[at_] == ' ') ++at_;
    word = {{}, at_, false};
    if (at_ == text_.size()) return false;
    if (text_[at_] == '[') {  // the rest is a criteria
        word.text = text_.substr(std::exchange(at_, text_.size()));
        return true;
    }
    bool open = false;
    for (; at_ < text_.size() && (open || text_[at_] != ' '); ++at_) {
        if (text_[at_] == '"')
            open = !open, word.quoted = true;
        else
            word.text += text_[at_];
    }
    // A quote that is still being typed is no fault.
    return true;
}

bool Reader::take(const Word& word) {
    if (word.text.empty()) return true;
    if (!word.quoted && word.text.front() == '[') {
        add(false, "--where", word.text);
        return true;
    }
    const bool negated = word.text.front() == '!' && word.text.size() > 1;
    const std::string_view text = std::string_view(word.text).substr(negated ? 1 : 0);
    if (word.text == "!") return true;  // more is to come
    for (const Filter& filter : kFilters)
        if (text.starts_with(filter.begins)) return takeFilter(word, text, negated);
    if (text.starts_with("ext:") && text.size() > 4) {
        add(negated, "--name", "*." + literal(text.substr(4)));
    } else if (text.starts_with("dir:") && text.size() > 4) {
        add(negated, "--path", "*" + literal(text.substr(4)) + "*/*");
    } else if (text == "empty:") {
        if (negated) query_.arguments.emplace_back("--not");
        query_.arguments.emplace_back("--empty");
    } else if (text == "ext:" || text == "dir:") {
        return true;
    } else if (!word.quoted && isGlob(text)) {
        if (hasCapitals(text)) cased_ = true;
        add(negated, "--name", std::string(text));
    } else {
        takePart(text, negated);
    }
    return true;
}

bool Reader::takeFilter(const Word& word, std::string_view text, bool negated) {
    for (const Filter& filter : kFilters) {
        if (!text.starts_with(filter.begins)) continue;
        const std::string value(text.substr(filter.begins.size()));
        if (value.empty()) return true;  // it is still being typed
        if (value.find('/') != value.npos && filter.option != "--newer")
            return fail(word.at, "a filter has no /: put the word into quotes");
        add(negated, filter.option, value);
        return true;
    }
    return true;
}

void Reader::takePart(std::string_view text, bool negated) {
    if (negated)
        add(true, "--path", "*" + literal(text) + "*");
    else
        words_.emplace_back(text);
}

void Reader::add(bool negated, std::string_view option, const std::string& value) {
    if (negated) query_.arguments.emplace_back("--not");
    query_.arguments.push_back(std::string(option) + "=" + value);
}

// The search looks for the longest part, which probably is the rarest.
void Reader::finish() {
    const auto longest =
        std::max_element(words_.begin(), words_.end(),
                         [](const auto& a, const auto& b) { return a.size() < b.size(); });
    query_.filters = query_.arguments;
    if (longest != words_.end()) {
        cased_ = cased_ || hasCapitals(*longest);
        add(false, "--path", "*" + literal(*longest) + "*");
        query_.sought = std::move(*longest);
        words_.erase(longest);
    }
    query_.parts = std::move(words_);
    const auto& options = query_.arguments;
    const bool named = std::any_of(options.begin(), options.end(), [](const std::string& option) {
        return option.starts_with("--name=") || option.starts_with("--path=");
    });
    if (!named || cased_) return;
    query_.arguments.emplace_back("-i");
    query_.filters.emplace_back("-i");
}

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
}

bool hasInAnyCase(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](unsigned char a, unsigned char b) {
                           return std::tolower(a) == std::tolower(b);
                       }) != text.end();
}

// A part with capital letters is one in its case.
bool hasPart(std::string_view text, std::string_view part) {
    return hasCapitals(part) ? text.find(part) != text.npos : hasInAnyCase(text, part);
}

}  // namespace

bool TypedQuery::admits(std::string_view path) const {
    return std::all_of(parts.begin(), parts.end(),
                       [path](const std::string& part) { return hasPart(path, part); });
}

bool TypedQuery::admitsAll(std::string_view path) const {
    return hasPart(path, sought) && admits(path);
}

// The search knows the cases of more letters than those of ASCII.
bool TypedQuery::narrows(const TypedQuery& other) const {
    if (filters != other.filters || !isAscii(sought)) return false;
    const auto isImplied = [this](const std::string& before) {
        const auto implies = [&before](const std::string& part) { return hasPart(part, before); };
        return implies(sought) || std::any_of(parts.begin(), parts.end(), implies);
    };
    return isImplied(other.sought) &&
           std::all_of(other.parts.begin(), other.parts.end(), isImplied);
}

std::optional<TypedQuery> readTyped(std::string_view text, TypedError& error) {
    return Reader(text, error).read();
}

}  // namespace fscan
