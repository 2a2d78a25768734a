#pragma once

#include <string_view>

namespace fscan {

/// What is shown of a file besides its path.
struct FileFacts {
    bool known = false;  ///< the time is, too: the file is still there
    unsigned attributes = 0;
    unsigned long long size = 0;
    long modified = 0;  ///< seconds since the epoch

    bool none() const { return !known && attributes == 0 && size == 0; }
};

/// A file that is to be reported.
struct Match {
    std::string_view path;   ///< its bytes, as the user is to see them
    std::size_t nameAt = 0;  ///< where the name begins in it
    FileFacts facts;

    std::string_view name() const { return path.substr(nameAt); }
    /// Without the "/" at its end, unless that is all.
    std::string_view directory() const { return path.substr(0, nameAt > 1 ? nameAt - 1 : nameAt); }
};

/// Takes matches, one after the other.
class MatchSink {
public:
    virtual ~MatchSink() = default;
    /// The match's texts are valid during the call. False when no more are wanted.
    virtual bool take(const Match& match) = 0;
};

/// What becomes of the matches in the end.
class MatchConsumer : public MatchSink {
public:
    /// To be called after the last match.
    virtual void finish() = 0;
    /// Whether something went wrong with what was made of the matches.
    virtual bool failed() const = 0;
    virtual unsigned long long count() const = 0;
};

}  // namespace fscan
