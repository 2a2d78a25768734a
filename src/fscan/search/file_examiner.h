#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "fscan/match/match.h"

struct stat;

namespace fscan {

struct SearchRoots;

/// Examines files that a search found, as they are now, and follows no link on the way:
/// whoever exchanges a directory for a link must not have us tell of files elsewhere.
///
/// Keeps some directories open: files come in runs of one directory, and a walk comes back
/// to a directory after those in it.
class FileExaminer {
public:
    enum class Found {
        there,
        gone,     ///< no file of this path any more, but perhaps a directory
        changed,  ///< another kind of file, or one that was not searched for
        unknown   ///< the system does not tell
    };

    FileExaminer() = default;
    FileExaminer(const FileExaminer&) = delete;
    FileExaminer& operator=(const FileExaminer&) = delete;
    ~FileExaminer();

    /// `directory` is absolute and free of links, `name` the bytes of a name in it.
    Found examine(const std::wstring& directory, const char* name, struct stat& info);
    /// The directory, open for `fchdir` and the like until the next call; -1 where that fails.
    int directory(const std::wstring& path) { return enter(path).descriptor; }

    /// Notes that a file was left out because of what was found.
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

/// Finds out where matches really are that are shown as the user gave their PATHs.
class MatchPlace {
public:
    explicit MatchPlace(const SearchRoots& roots) : roots_(roots) {}
    /// Valid until the next call.
    const std::wstring& directoryOf(const Match& match);

private:
    const SearchRoots& roots_;
    std::string shown_;       // the directory of the last match
    std::wstring directory_;  // where that really is
};

/// Hands on each match with its details; leaves out those that are gone.
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
