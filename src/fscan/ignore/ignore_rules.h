#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fscan/ignore/ignore_file.h"

namespace fscan {

/// Which files --ignore and --no-hidden leave out below one directory, the root.
///
/// The rules of .gitignore, .ignore and .git/info/exclude hold for the directory they lie in and
/// all below, up to an inner repository, which has its own alone. Those above the root hold from
/// the top of its repository on. .ignore wins over .gitignore, that over the repository's
/// exclude file, and a deeper file over a higher one. The root itself is never left out.
///
/// Rules are read from regular files only, and no link is followed. Those of the directory that
/// was asked for last and of all above it are kept: a walk goes depth first.
class IgnoreRules {
public:
    struct Kinds {
        bool files = false;   ///< what the rules of files ignore, and ".git"
        bool hidden = false;  ///< names that begin with "."
        bool any() const { return files || hidden; }
    };

    /// `root` is absolute and without links, as are all directories that are asked for.
    IgnoreRules(const std::wstring& root, Kinds kinds);

    /// Whether the entry of the directory is left out, by its own name or with a directory above.
    /// The directory is the root or lies below it.
    bool covers(std::wstring_view directory, const wchar_t* name, bool isDirectory);
    /// Whether a walk has to enter the directory: it is not left out, or not below the root.
    bool enters(std::wstring_view directory);

private:
    /// The rules of one directory.
    struct Level {
        std::shared_ptr<const Level> above;  ///< the next that has rules, in this repository
        std::size_t base = 0;                ///< the length of the directory's path with a "/"
        IgnoreFile ignore;
        IgnoreFile gitignore;
        IgnoreFile exclude;
    };
    using Levels = std::shared_ptr<const Level>;
    struct State {
        bool left = false;  ///< the directory is left out
        Levels levels = {};
    };

    struct Step {
        std::size_t length;  ///< of the directory's path
        State state;
    };

    void enter(std::wstring_view directory);
    void enter(const std::string& directory);
    State below(const State& above, const std::string& path) const;
    bool covers(const Level* levels, std::string_view path, bool isDirectory) const;
    static IgnoreFile::Verdict verdict(const Level* levels, IgnoreFile Level::*file,
                                       std::string_view path, bool isDirectory);
    static Levels readLevel(const std::string& directory, const Levels& above);
    static Levels levelsOfRoot(const std::string& root);

    std::wstring root_;
    Kinds kinds_;
    std::vector<Step> steps_;  // from the root down to the last directory
    std::wstring directory_;   // the last one
    std::string path_;         // the same in bytes
};

}  // namespace fscan
