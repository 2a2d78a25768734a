#pragma once

#include <limits>
#include <optional>
#include <string_view>

namespace fscan {

/// The facts about a file that are shown in long lines.
struct FileFacts {
    bool known = false;  ///< all of them are known: the file was examined and exists
    unsigned attributes = 0;
    unsigned long long size = 0;
    long modified = 0;  ///< seconds since the epoch

    bool none() const { return !known && attributes == 0 && size == 0; }
};

/// How much must be known of matches. Each value includes those before it.
enum class FactsNeeded {
    count,     ///< nothing: they are counted
    none,      ///< the paths
    known,     ///< the facts that the search has, which may come from a cache
    examined,  ///< the facts, from the file system
    detailed   ///< all details, from the file system
};

struct FileDetails;

/// A file that is to be reported.
struct Match {
    std::string_view path;   ///< its bytes, below the PATH as the user gave it
    std::size_t nameAt = 0;  ///< where the name begins in it
    FileFacts facts;
    const FileDetails* details = nullptr;  ///< null unless the consumer needs them

    std::string_view name() const { return path.substr(nameAt); }
    /// Without the "/" at its end, unless that is all.
    std::string_view directory() const { return path.substr(0, nameAt > 1 ? nameAt - 1 : nameAt); }
};

/// Takes matches, one after the other.
class MatchSink {
public:
    virtual ~MatchSink() = default;
    /// The match's texts are valid during the call. Returns false to get no more.
    virtual bool take(const Match& match) = 0;
};

/// The last sink of the matches: counts them up to a limit, and prints them or runs commands.
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
    /// Whether something failed while matches were consumed.
    virtual bool failed() const { return false; }
    unsigned long long count() const { return count_; }
    /// Whether the limit is reached.
    bool full() const { return count_ == limit_; }

protected:
    /// Whether a match is to be counted and consumed. One that is not is noted as left out.
    virtual bool admit(const Match&) { return true; }
    /// Returns false to get no more.
    virtual bool consume(const Match& match) = 0;

private:
    unsigned long long limit_;
    unsigned long long count_ = 0;
};

}  // namespace fscan
