#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace re2 {
class RE2;
}

namespace fscan {

enum class CaseMode { sensitive, insensitive };

/// Whether the text holds an upper-case letter, so that case counts where nothing else is said. In
/// a regular expression what stands behind a backslash is no letter.
bool hasUpperCase(const std::string& text, bool isRegex = false);

/// A regular expression over bytes. No expression makes it slow. A text that is no UTF-8 is matched
/// byte by byte.
class ByteRegex {
public:
    /// Null, with the reason in `error`, for a wrong expression. `whole`: it must match the whole
    /// text, not a part of it. `ofBytes` is the same expression for texts that are no UTF-8.
    static std::unique_ptr<ByteRegex> create(const std::string& ofCharacters,
                                             const std::string& ofBytes, CaseMode mode, bool whole,
                                             std::string& error);
    ~ByteRegex();
    bool matches(std::string_view text) const;

private:
    ByteRegex();

    std::unique_ptr<re2::RE2> characters_;
    std::unique_ptr<re2::RE2> bytes_;
};

/// A pattern over names: a glob, a part of a name, or a regular expression.
///
/// A glob knows *, ?, [a-z], [!a], [^a], [[:alpha:]], {a,b} and a backslash, which takes the
/// character behind it as it is. A bracket or brace that is not closed stands for itself.
class NamePattern {
public:
    /// A glob of the whole name. Nothing, with the reason in `error`, for a wrong one.
    static std::optional<NamePattern> glob(const std::string& text, CaseMode mode,
                                           std::string& error);
    /// A part of the name, unless the text holds wildcards: then a glob of the whole name.
    static std::optional<NamePattern> pattern(const std::string& text, CaseMode mode,
                                              std::string& error);
    /// A regular expression that matches a part of the name.
    static std::optional<NamePattern> regex(const std::string& text, CaseMode mode,
                                            std::string& error);

    bool matches(const wchar_t* name) const;
    CaseMode mode() const { return mode_; }
    /// Patterns of * and ? alone, one of which each matching name matches; empty where there are
    /// none.
    const std::vector<std::wstring>& globs() const { return globs_; }
    /// Whether each name that matches one of `globs` matches.
    bool isExact() const { return regex_ == nullptr; }

private:
    explicit NamePattern(CaseMode mode) : mode_(mode) {}
    static std::optional<NamePattern> compiled(const std::string& text, CaseMode mode, bool part,
                                               std::string& error);

    CaseMode mode_;
    std::vector<std::wstring> globs_;
    std::shared_ptr<const ByteRegex> regex_;  // null: `globs_` decide
};

}  // namespace fscan
