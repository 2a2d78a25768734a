#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "fscan/match/match.h"

namespace fscan {

/// Keeps texts, some with facts beside them, in memory that is never moved: what grows
/// in one piece would be copied over and over.
class TextPool {
public:
    using Place = std::uint32_t;

    /// False when there is no room: at about 4 GiB.
    bool add(std::string_view text, const FileFacts& facts = {});
    std::string_view text(Place place) const {
        const Header found = header(place);
        return {at(place) + found.before(), found.length};
    }
    FileFacts facts(Place place) const;
    /// Has it brought from memory while others are worked on.
    void prefetch(Place place) const { __builtin_prefetch(at(place)); }
    /// Calls `visit(place)` for each text, in the order of adding.
    template <class Visit>
    void forEach(Visit visit) const;
    /// Where the text lies that was added last.
    Place last() const { return last_; }
    /// The bytes in use.
    std::size_t bytes() const;
    /// Forgets all and keeps some memory.
    void clear();

private:
    struct Header {
        std::uint32_t length : 31;
        std::uint32_t hasFacts : 1;

        std::size_t before() const { return sizeof(Header) + (hasFacts ? sizeof(FileFacts) : 0); }
    };
    struct Chunk {
        std::unique_ptr<char[]> bytes;
        std::size_t used = 0;
    };
    static constexpr std::size_t chunkSize = std::size_t{1} << 20;
    static constexpr std::size_t maxChunks = std::size_t{1} << 12;

    char* makeRoom(std::size_t bytes);
    const char* at(Place place) const {
        return chunks_[place / chunkSize].bytes.get() + place % chunkSize;
    }
    Header header(Place place) const {
        Header header;
        std::memcpy(&header, at(place), sizeof header);
        return header;
    }

    std::vector<Chunk> chunks_;  // one for a longer text is followed by empty ones
    std::size_t fill_ = 0;       // the one that is being filled
    Place last_ = 0;
};

template <class Visit>
void TextPool::forEach(Visit visit) const {
    for (std::size_t chunk = 0; chunk < chunks_.size(); ++chunk) {
        for (std::size_t at = 0; at < chunks_[chunk].used;) {
            const auto place = static_cast<Place>(chunk * chunkSize + at);
            const Header found = header(place);
            visit(place);
            at += found.before() + found.length;
        }
    }
}

}  // namespace fscan
