#include "fscan/sort/sorted_matches.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

namespace fscan {

namespace {

/// The memory for matches, in bytes. Where all go to the file, it is small, but large enough
/// that even many millions of matches make no more runs than can be merged at once.
constexpr std::size_t kMemoryBound = std::size_t{256} << 20;
constexpr std::size_t kMemoryBoundWithFile = std::size_t{1} << 20;
/// How much of a run is read, and written, at a time.
constexpr std::size_t kReadSize = std::size_t{16} << 10;
constexpr std::size_t kWriteSize = std::size_t{1} << 20;

/// In the file, a match is this and its path.
struct Header {
    std::size_t length;
    std::size_t nameAt;
    FileFacts facts;
};

/// Reads the matches of one run, of which `match` is the current one.
class RunReader {
public:
    RunReader(const ScratchFile& file, off_t begin, off_t end)
        : file_(file), next_(begin), end_(end) {}

    /// Goes on to the next match. False at the end of the run, and where it cannot be read.
    bool advance() {
        if (next_ == end_ && at_ == bytes_.size()) return false;
        Header header;
        const char* const begin = take(sizeof header);
        if (begin == nullptr) return false;
        std::memcpy(&header, begin, sizeof header);
        const char* const path = take(header.length);
        match = {{path, header.length}, header.nameAt, header.facts};
        return path != nullptr;
    }
    bool failed() const { return failed_; }

    Match match;  ///< its path is valid until the next call of `advance`

private:
    /// The next bytes; null where they cannot be read.
    const char* take(std::size_t size) {
        if (bytes_.size() - at_ < size && !load(size)) return nullptr;
        at_ += size;
        return bytes_.data() + at_ - size;
    }
    bool load(std::size_t size) {
        bytes_.erase(0, at_);
        at_ = 0;
        const std::size_t kept = bytes_.size();
        const std::size_t more =
            std::min(std::max(size - kept, kReadSize), static_cast<std::size_t>(end_ - next_));
        bytes_.resize(kept + more);
        failed_ = bytes_.size() < size || !file_.read(next_, std::span(bytes_).subspan(kept));
        next_ += static_cast<off_t>(more);
        return !failed_;
    }

    const ScratchFile& file_;
    off_t next_;  // of the bytes that are not loaded
    off_t end_;
    std::string bytes_;
    std::size_t at_ = 0;  // of the bytes that are not taken
    bool failed_ = false;
};

}  // namespace

SortedMatches::SortedMatches(const SortOrder& order, SortPlace place)
    : order_(order), place_(place), memory_(order) {}

bool SortedMatches::take(const Match& match) {
    const std::size_t bound = place_ == SortPlace::file ? kMemoryBoundWithFile : kMemoryBound;
    if (memory_.bytes() + match.path.size() > bound && !writeRun()) return false;
    memory_.add(match);
    return !failed_;
}

/// Moves the matches in memory to the file.
bool SortedMatches::writeRun() {
    memory_.sort();
    std::string bytes;
    for (std::size_t i = 0; i < memory_.size() && !failed_; ++i) {
        const Match match = memory_.at(i);
        const Header header{match.path.size(), match.nameAt, match.facts};
        bytes.append(reinterpret_cast<const char*>(&header), sizeof header).append(match.path);
        if (bytes.size() < kWriteSize && i + 1 < memory_.size()) continue;
        failed_ = !file_.append(bytes);
        bytes.clear();
    }
    if (memory_.size() > 0) runEnds_.push_back(file_.size());
    memory_.clear();
    return !failed_;
}

bool SortedMatches::deliver(MatchSink& to) {
    if (place_ == SortPlace::file || !runEnds_.empty()) return writeRun() && mergeRuns(to);
    memory_.sort();
    for (std::size_t i = 0; i < memory_.size() && to.take(memory_.at(i)); ++i) {
    }
    memory_.clear();
    return !failed_;
}

bool SortedMatches::mergeRuns(MatchSink& to) {
    std::vector<std::unique_ptr<RunReader>> heap;  // of runs with a current match, the first on top
    const auto later = [this](const auto& a, const auto& b) {
        return comesBefore(order_, b->match, a->match);
    };
    const auto advance = [&] {
        if (heap.back()->advance()) return std::push_heap(heap.begin(), heap.end(), later);
        failed_ = failed_ || heap.back()->failed();
        heap.pop_back();
    };
    off_t begin = 0;
    for (const off_t end : runEnds_) {
        heap.push_back(std::make_unique<RunReader>(file_, std::exchange(begin, end), end));
        advance();
    }
    while (!heap.empty() && !failed_ && to.take(heap.front()->match)) {
        std::pop_heap(heap.begin(), heap.end(), later);
        advance();
    }
    return !failed_;
}

}  // namespace fscan
