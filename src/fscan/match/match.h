#pragma once

#include <limits>
#include <optional>
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

/// What matches have to come with: nothing at all, to be counted, or their paths and no
/// facts, those that the search knows, which may come from a cache, those that the file
/// system tells now, or all that it tells.
enum class FactsNeeded { count, none, known, examined, detailed };

struct FileDetails;

/// A file that is to be reported.
struct Match {
    std::string_view path;   ///< its bytes, as the user is to see them
    std::size_t nameAt = 0;  ///< where the name begins in it
    FileFacts facts;
    const FileDetails* details = nullptr;  ///< where they are needed, on the way to be shown

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

/// What becomes of the matches in the end: they are counted, up to a limit.
class MatchConsumer : public MatchSink {
public:
    explicit MatchConsumer(std::optional<unsigned long long> limit)
        : limit_(limit.value_or(std::numeric_limits<unsigned long long>::max())) {}

    bool take(const Match& match) final {
        if (full()) return false;
        if (!admit(match)) return true;
        ++count_;
        return consume(match) && !full();
    }
    /// To be called after the last match.
    virtual void finish() = 0;
    /// Whether something went wrong with what was made of the matches.
    virtual bool failed() const { return false; }
    unsigned long long count() const { return count_; }
    /// Whether there are as many as may be. There may have been more.
    bool full() const { return count_ == limit_; }

protected:
    /// Whether a match is to be counted and consumed; one that is not has been noted.
    virtual bool admit(const Match&) { return true; }
    /// False when no more are wanted.
    virtual bool consume(const Match& match) = 0;

private:
    unsigned long long limit_;
    unsigned long long count_ = 0;
};

}  // namespace fscan
