#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "match.h"

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
        gone,    ///< no file of this path any more, but perhaps a directory
        unknown  ///< the system does not tell
    };

    FileExaminer() = default;
    FileExaminer(const FileExaminer&) = delete;
    FileExaminer& operator=(const FileExaminer&) = delete;
    ~FileExaminer();

    /// `directory` is absolute and free of links, `name` the bytes of a name in it.
    Found examine(const std::wstring& directory, const char* name, struct stat& info);

    /// Notes that a file was left out because of what `examine` said of it.
    void leaveOut(Found found) { ++(found == Found::gone ? gone_ : unknown_); }
    unsigned long long gone() const { return gone_; }
    unsigned long long unknown() const { return unknown_; }

private:
    struct Directory {
        std::wstring path;
        int descriptor = -1;
        int error = 0;  ///< of opening it
    };
    const Directory& enter(const std::wstring& path);

    std::array<Directory, 16> directories_;
    std::size_t current_ = 0;
    unsigned long long gone_ = 0;
    unsigned long long unknown_ = 0;
};

/// Hands on each match with its details; leaves out those that are gone.
class DetailedMatches : public MatchSink {
public:
    DetailedMatches(const SearchRoots& roots, FileExaminer& examiner, MatchSink& to)
        : roots_(roots), examiner_(examiner), to_(to) {}

    bool take(const Match& match) override;

private:
    const SearchRoots& roots_;
    FileExaminer& examiner_;
    MatchSink& to_;
    std::string shown_;       // the directory of the last match
    std::wstring directory_;  // where that really is
};

}  // namespace fscan
