#include "fscan/match/name_pattern.h"

#include <re2/re2.h>

#include <algorithm>
#include <cctype>
#include <cwctype>
#include <iterator>

#include "fscan/text/text.h"
#include "fscanner/fs/fs_text.h"

namespace fscan {

// ---- Regular expressions ----------------------------------------------------

namespace {

constexpr std::int64_t kRegexMemory = 8 << 20;

std::unique_ptr<RE2> newRegex(const std::string& text, RE2::Options::Encoding encoding,
                              CaseMode mode) {
    RE2::Options options;
    options.set_encoding(encoding);
    options.set_case_sensitive(mode == CaseMode::sensitive);
    options.set_dot_nl(true);
    options.set_log_errors(false);
    options.set_never_capture(true);
    options.set_max_mem(kRegexMemory);
    return std::make_unique<RE2>(text, options);
}

bool isUtf8(const re2::StringPiece& text) {
    static const RE2 anyCharacters("(?s).*");
    return RE2::FullMatch(text, anyCharacters);
}

/// Where the class that begins at `at` ends; npos for one that is not plain.
std::size_t endOfClass(const std::string& regex, std::size_t at) {
    const std::size_t first = at + (regex.compare(at + 1, 1, "^") == 0 ? 3 : 2);
    const std::size_t end = regex.find(']', std::min(first, regex.size()));
    const std::size_t odd = regex.find_first_of("[\\", at + 1);
    return odd < end ? regex.npos : end;
}

/// The longest text of letters, digits and the like that every match of the expression holds, as
/// far as that is plain to see: before the first parenthesis, and where nothing is an alternative.
std::string literalOf(const std::string& regex) {
    if (regex.find('|') != regex.npos) return {};
    std::string longest, run;
    const auto end = [&] {
        if (run.size() > longest.size()) longest = run;
        run.clear();
    };
    for (std::size_t i = 0; i < regex.size(); ++i) {
        const char c = regex[i];
        const auto isOneOf = [c](std::string_view some) { return some.find(c) != some.npos; };
        if (isOneOf("?*{") && !run.empty()) run.pop_back();
        if (c == '\\') {
            const char next = i + 1 < regex.size() ? regex[++i] : 'Q';
            if (next == '.' || next == '-')
                run += next;
            else
                end();
            if (std::string_view("dDwWsSbBAz").find(next) == std::string_view::npos &&
                std::isalnum(static_cast<unsigned char>(next)) != 0)
                break;
        } else if (std::isalnum(static_cast<unsigned char>(c)) != 0 || isOneOf("_-")) {
            run += c;
        } else {
            end();
            if (c == '[') i = endOfClass(regex, i);
            if (c == '{') i = regex.find('}', i);
            if (c == '(' || i >= regex.size()) break;
        }
    }
    end();
    return longest;
}

}  // namespace

ByteRegex::ByteRegex() = default;
ByteRegex::~ByteRegex() = default;

std::unique_ptr<ByteRegex> ByteRegex::create(const std::string& ofCharacters,
                                             const std::string& ofBytes, CaseMode mode, bool whole,
                                             std::string& error) {
    const auto anchored = [whole](const std::string& text) {
        return whole ? "\\A(?:" + text + ")\\z" : text;
    };
    std::unique_ptr<ByteRegex> regex(new ByteRegex);
    regex->characters_ = newRegex(anchored(ofCharacters), RE2::Options::EncodingUTF8, mode);
    regex->bytes_ = newRegex(anchored(ofBytes), RE2::Options::EncodingLatin1, mode);
    if (regex->characters_->ok() && regex->bytes_->ok()) return regex;
    error = regex->characters_->ok() ? regex->bytes_->error() : regex->characters_->error();
    return nullptr;
}

bool ByteRegex::matches(std::string_view text) const {
    const re2::StringPiece piece(text.data(), text.size());
    if (RE2::PartialMatch(piece, *characters_)) return true;
    return !isUtf8(piece) && RE2::PartialMatch(piece, *bytes_);
}

bool hasUpperCase(const std::string& text, bool isRegex) {
    const std::wstring wide = toWide(text);
    for (std::size_t i = 0; i < wide.size(); ++i) {
        if (isRegex && wide[i] == L'\\')
            ++i;
        else if (std::iswupper(static_cast<wint_t>(wide[i])) != 0)
            return true;
    }
    return false;
}

// ---- Globs ------------------------------------------------------------------

namespace {

/// A piece of a glob.
struct Piece {
    enum class Kind { literal, anyText, anyCharacter, oneOf, choice };
    Kind kind;
    std::wstring text = {};                             ///< a literal, or a class as a RE2 has it
    std::vector<std::vector<Piece>> alternatives = {};  ///< of a choice
};
using Pieces = std::vector<Piece>;

/// More braces in one glob are refused: each costs a look at the rest of the text.
constexpr std::ptrdiff_t kMostBraces = 256;

/// Takes a glob apart.
class GlobReader {
public:
    explicit GlobReader(const std::wstring& text) : text_(text) {}

    Pieces read() {
        Pieces pieces;
        while (at_ < text_.size()) readPiece(pieces);
        return pieces;
    }

private:
    void readPiece(Pieces& pieces) {
        const wchar_t c = text_[at_];
        if (c == L'*' || c == L'?') {
            ++at_;
            const bool again = !pieces.empty() && pieces.back().kind == Piece::Kind::anyText;
            if (c == L'?')
                pieces.push_back({Piece::Kind::anyCharacter});
            else if (!again)
                pieces.push_back({Piece::Kind::anyText});
        } else if (!(c == L'[' && closed_ && readClass(pieces)) &&
                   !(c == L'{' && readChoice(pieces))) {
            if (c == L'\\' && at_ + 1 < text_.size()) ++at_;
            addLiteral(pieces, text_[at_++]);
        }
    }
    static void addLiteral(Pieces& pieces, wchar_t c) {
        if (pieces.empty() || pieces.back().kind != Piece::Kind::literal)
            pieces.push_back({Piece::Kind::literal});
        pieces.back().text += c;
    }

    /// The length of a class with a name, such as [:alpha:], within brackets; 0 if none is here.
    std::size_t lengthOfNamed(std::size_t at) const {
        if (text_.compare(at, 2, L"[:") != 0) return 0;
        const auto first = text_.begin() + static_cast<std::ptrdiff_t>(at) + 2;
        const auto end = std::find_if(
            first, text_.end(), [](wchar_t c) { return c == L':' || c == L'[' || c == L']'; });
        const auto length = static_cast<std::size_t>(end - first) + 4;
        return text_.compare(at + length - 2, 2, L":]") == 0 ? length : 0;
    }
    /// False, at the same place, where the bracket is not closed.
    bool readClass(Pieces& pieces) {
        std::size_t i = at_ + 1;
        const bool negated = i < text_.size() && (text_[i] == L'!' || text_[i] == L'^');
        if (negated) ++i;
        std::wstring members;
        for (bool first = true; i < text_.size() && (text_[i] != L']' || first); first = false) {
            if (const std::size_t length = lengthOfNamed(i); length > 0) {
                members.append(text_, i, length);
                i += length;
                continue;
            }
            if (text_[i] == L'\\' && i + 1 < text_.size()) ++i;
            addMember(members, text_[i++]);
            // A "-" before the last bracket is a character.
            if (i + 1 < text_.size() && text_[i] == L'-' && text_[i + 1] != L']') {
                members += L'-';
                ++i;
                if (text_[i] == L'\\' && i + 1 < text_.size()) ++i;
                addMember(members, text_[i++]);
            }
        }
        if (i >= text_.size()) {
            closed_ = false;
            return false;
        }
        at_ = i + 1;
        pieces.push_back({Piece::Kind::oneOf, (negated ? L"[^" : L"[") + members + L"]"});
        return true;
    }
    static void addMember(std::wstring& members, wchar_t c) {
        if (std::wcschr(L"[]^-\\", c) != nullptr && c != 0) members += L'\\';
        members += c;
    }

    /// The place of the brace or comma that ends the alternative which begins at `i`.
    std::size_t endOfAlternative(std::size_t i) const {
        for (int depth = 0; i < text_.size(); ++i) {
            const wchar_t c = text_[i];
            if (c == L'\\') {
                ++i;
            } else if (c == L'{') {
                ++depth;
            } else if (depth == 0 && (c == L'}' || c == L',')) {
                return i;
            } else if (c == L'}') {
                --depth;
            }
        }
        return text_.npos;
    }
    /// False, at the same place, where the brace is not closed.
    bool readChoice(Pieces& pieces) {
        Piece choice{Piece::Kind::choice};
        std::size_t begin = at_ + 1;
        for (;;) {
            const std::size_t end = endOfAlternative(begin);
            if (end == text_.npos) return false;
            const std::wstring alternative = text_.substr(begin, end - begin);
            choice.alternatives.push_back(GlobReader(alternative).read());
            begin = end + 1;
            if (text_[end] == L'}') break;
        }
        at_ = begin;
        pieces.push_back(std::move(choice));
        return true;
    }

    const std::wstring& text_;
    std::size_t at_ = 0;
    bool closed_ = true;  // brackets may be: one that is not says so of all behind it
};

bool hasWildcard(const Pieces& pieces) {
    return std::any_of(pieces.begin(), pieces.end(),
                       [](const Piece& piece) { return piece.kind != Piece::Kind::literal; });
}

/// Whether globs of * and ? say the same. A character that was quoted is none of these.
bool isPlain(const Pieces& pieces) {
    return std::all_of(pieces.begin(), pieces.end(), [](const Piece& piece) {
        if (piece.kind == Piece::Kind::literal)
            return piece.text.find_first_of(L"*?") == piece.text.npos;
        return piece.kind != Piece::Kind::oneOf &&
               std::all_of(piece.alternatives.begin(), piece.alternatives.end(), isPlain);
    });
}

constexpr std::size_t kMostGlobs = 64;

std::wstring globOf(const Piece& piece) {
    switch (piece.kind) {
        case Piece::Kind::literal: {
            std::wstring text = piece.text;
            std::replace(text.begin(), text.end(), L'*', L'?');
            return text;
        }
        case Piece::Kind::anyText:
            return L"*";
        default:
            return L"?";
    }
}

/// Globs of * and ? for all choices; empty where they are too many.
std::vector<std::wstring> expanded(const Pieces& pieces) {
    std::vector<std::wstring> texts{L""};
    for (const Piece& piece : pieces) {
        std::vector<std::wstring> endings;
        for (const Pieces& alternative : piece.alternatives) {
            const std::vector<std::wstring> some = expanded(alternative);
            if (some.empty()) return {};
            endings.insert(endings.end(), some.begin(), some.end());
        }
        if (piece.kind != Piece::Kind::choice) endings = {globOf(piece)};
        if (texts.size() * endings.size() > kMostGlobs) return {};
        std::vector<std::wstring> longer;
        for (const std::wstring& text : texts)
            for (const std::wstring& ending : endings) longer.push_back(text + ending);
        texts = std::move(longer);
    }
    return texts;
}

/// A class for single bytes: characters of several bytes are left out.
std::string classOfBytes(const std::wstring& text) {
    std::string kept;
    for (const wchar_t c : text)
        if (c < 0x80) kept += static_cast<char>(c);
    return kept == "[]" ? "[^\\x00-\\xff]" : kept == "[^]" ? "[\\x00-\\xff]" : kept;
}

std::string regexOf(const Pieces& pieces, bool ofBytes) {
    std::string regex;
    for (const Piece& piece : pieces) {
        switch (piece.kind) {
            case Piece::Kind::literal:
                regex += RE2::QuoteMeta(toBytes(piece.text));
                break;
            case Piece::Kind::anyText:
                regex += ".*";
                break;
            case Piece::Kind::anyCharacter:
                regex += '.';
                break;
            case Piece::Kind::oneOf:
                regex += ofBytes ? classOfBytes(piece.text) : toBytes(piece.text);
                break;
            case Piece::Kind::choice: {
                std::string any;
                for (const Pieces& alternative : piece.alternatives)
                    any += (any.empty() ? "(?:" : "|") + regexOf(alternative, ofBytes);
                regex += any + ")";
                break;
            }
        }
    }
    return regex;
}

}  // namespace

std::optional<NamePattern> NamePattern::regex(const std::string& text, CaseMode mode,
                                              std::string& error) {
    NamePattern pattern(mode);
    pattern.regex_ = ByteRegex::create(text, text, mode, false, error);
    if (!pattern.regex_) return std::nullopt;
    if (const std::string literal = literalOf(text); !literal.empty())
        pattern.globs_ = {L"*" + toWide(literal) + L"*"};
    return pattern;
}

std::optional<NamePattern> NamePattern::glob(const std::string& text, CaseMode mode,
                                             std::string& error) {
    return compiled(text, mode, false, error);
}

std::optional<NamePattern> NamePattern::compiled(const std::string& text, CaseMode mode, bool part,
                                                 std::string& error) {
    const std::wstring wide = toWide(text);
    if (std::count(wide.begin(), wide.end(), L'{') > kMostBraces) {
        error = "too many braces";
        return std::nullopt;
    }
    Pieces pieces = GlobReader(wide).read();
    if (part && !hasWildcard(pieces)) {
        pieces.insert(pieces.begin(), {Piece::Kind::anyText});
        pieces.push_back({Piece::Kind::anyText});
    }
    NamePattern pattern(mode);
    pattern.globs_ = expanded(pieces);
    if (!pattern.globs_.empty() && isPlain(pieces)) return pattern;
    pattern.regex_ =
        ByteRegex::create(regexOf(pieces, false), regexOf(pieces, true), mode, true, error);
    if (!pattern.regex_) return std::nullopt;
    return pattern;
}

std::optional<NamePattern> NamePattern::pattern(const std::string& text, CaseMode mode,
                                                std::string& error) {
    return compiled(text, mode, true, error);
}

bool NamePattern::matches(const wchar_t* name) const {
    if (regex_) return regex_->matches(toBytes(name));
    return std::any_of(globs_.begin(), globs_.end(), [&](const std::wstring& glob) {
        return fscanner::fsNameMatches(glob.c_str(), name, mode_ == CaseMode::sensitive);
    });
}

}  // namespace fscan
