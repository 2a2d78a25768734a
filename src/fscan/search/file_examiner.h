#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "fscan/match/match.h"

struct stat;

namespace fscan {

struct SearchRoots;

/// Examines files that a search found, as they are now. It follows no link on the way: a
/// directory that was replaced by a link must not lead to files elsewhere.
///
/// Keeps some directories open: consecutive files share a directory, and a walk returns to a
/// directory after its subdirectories.
class FileExaminer {
public:
    enum class Found {
        there,
        gone,     ///< no file of this path any more, but perhaps a directory
        changed,  ///< a file of another kind, or one that the search does not ask for any more
        unknown   ///< the file could not be examined
    };

    FileExaminer() = default;
    FileExaminer(const FileExaminer&) = delete;
    FileExaminer& operator=(const FileExaminer&) = delete;
    ~FileExaminer();

    /// `directory` is absolute and free of links, `name` the bytes of a name in it.
    Found examine(const std::wstring& directory, const char* name, struct stat& info);
    /// A descriptor of the directory, valid until the next call; -1 where it cannot be opened.
    int directory(const std::wstring& path) { return enter(path).descriptor; }

    /// Counts a file that was left out for this reason.
    void leaveOut(Found found) { ++left_[static_cast<std::size_t>(found)]; }
    unsigned long long leftOut(Found found) const { return left_[static_cast<std::size_t>(found)]; }

private:
    struct Directory {
        std::wstring path;
        int descriptor = -1;
        int error = 0;  ///< of opening it
    };
    const Directory& enter(const std::wstring& path);

    std::array<Directory, 16> directories_;
    std::size_t current_ = 0;
    std::array<unsigned long long, 4> left_{};
};

/// Finds the real directories of matches, whose paths begin with a PATH as the user gave it.
class MatchPlace {
public:
    explicit MatchPlace(const SearchRoots& roots) : roots_(roots) {}
    /// Valid until the next call.
    const std::wstring& directoryOf(const Match& match);

private:
    const SearchRoots& roots_;
    std::string shown_;       // the directory of the last match
    std::wstring directory_;  // its real path
};

/// Passes on each match with its details; leaves out those that are gone.
class DetailedMatches : public MatchSink {
public:
    DetailedMatches(const SearchRoots& roots, FileExaminer& examiner, MatchSink& to)
        : place_(roots), examiner_(examiner), to_(to) {}

    bool take(const Match& match) override;

private:
    MatchPlace place_;
    FileExaminer& examiner_;
    MatchSink& to_;
};

}  // namespace fscan
