#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace re2 {
class RE2;
}

namespace fscan {

/// The rules of one file such as .gitignore, with the meaning that git gives them. Names are
/// bytes here, as they are for git. Of several rules that match, the last one counts.
class IgnoreFile {
public:
    enum class Verdict { none, ignored, included };

    IgnoreFile() = default;
    explicit IgnoreFile(std::string_view text);

    bool empty() const { return rules_.empty(); }
    /// What the rules say of this path alone; a directory above it may be ignored. `path` is
    /// relative to the directory of the file.
    Verdict verdict(std::string_view path, bool isDirectory) const;

private:
    struct Rule {
        bool negated = false;
        bool directoriesOnly = false;
        bool namesOnly = false;  ///< compared with the name, not with the path
        bool suffix = false;     ///< "*" and a literal, which is at the end of the name
        std::string literal;     ///< that the text begins with
        std::shared_ptr<const re2::RE2> rest;  ///< null: nothing follows the literal

        bool matches(std::string_view text) const;
    };

    void add(std::string_view line);

    std::vector<Rule> rules_;
};

}  // namespace fscan
