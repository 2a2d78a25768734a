#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace fscan {

/// A search as it is typed, in the words of the tool's options.
struct TypedQuery {
    std::vector<std::string> arguments;  ///< options for a search
    std::vector<std::string> filters;    ///< the same but for a part of the path
    std::string sought;                  ///< that part; empty if there is none
    std::vector<std::string> parts;      ///< each must be in the path as well

    bool operator==(const TypedQuery&) const = default;
    bool empty() const { return arguments.empty() && parts.empty(); }
    /// Whether a path has the parts, which the search itself does not look for. Those with capital
    /// letters must be in it in that case.
    bool admits(std::string_view path) const;
    /// Whether the answer is a part of the other one's, and `admitsAll` tells which.
    bool narrows(const TypedQuery& other) const;
    /// Whether a path has the part that the search looks for and the others.
    bool admitsAll(std::string_view path) const;
};

/// What cannot be read, and where in the text, in bytes.
struct TypedError {
    std::string message;
    std::size_t at = 0;
};

/// Reads what is typed. All words must hold:
///
///     word  "two words"    a part of the path; with capital letters, in this case
///     *.h                  a glob: the whole name
///     size>10M  size<4k    as --larger and --smaller; size:1k..2M as --size
///     type:ELF  type:d     as -t
///     newer:2d  older:1w  owner:ann  group:adm  perm:u+x
///     ext:h     dir:src    the ending of the name; a part of the directory's path
///     empty:
///     !word                not this word or filter
///     [SIZE] > 1000        from "[" on all is a criteria
///
/// Nothing where it is wrong; then `error` says why.
std::optional<TypedQuery> readTyped(std::string_view text, TypedError& error);

}  // namespace fscan
