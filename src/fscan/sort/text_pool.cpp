#include "fscan/sort/text_pool.h"

#include <algorithm>

namespace fscan {

namespace {

template <class Value>
char* put(char* at, const Value& value) {
    std::memcpy(at, &value, sizeof value);
    return at + sizeof value;
}

}  // namespace

// A place for as many bytes; null where there is none.
char* TextPool::makeRoom(std::size_t bytes) {
    if (chunks_.empty() || !chunks_.back().bytes || chunks_.back().used + bytes > chunkSize) {
        const std::size_t wanted = std::max<std::size_t>((bytes + chunkSize - 1) / chunkSize, 1);
        if (wanted > maxChunks - chunks_.size()) return nullptr;
        chunks_.push_back({std::make_unique_for_overwrite<char[]>(wanted * chunkSize), 0});
        fill_ = chunks_.size() - 1;
        // The places in what is more than a chunk.
        chunks_.resize(chunks_.size() + wanted - 1);
    }
    Chunk& chunk = chunks_[fill_];
    last_ = static_cast<Place>(fill_ * chunkSize + chunk.used);
    chunk.used += bytes;
    return chunk.bytes.get() + chunk.used - bytes;
}

bool TextPool::add(std::string_view text, const FileFacts& facts) {
    if (text.size() >= maxChunks * chunkSize / 2) return false;
    const Header header{static_cast<std::uint32_t>(text.size()) & 0x7FFFFFFF, !facts.none()};
    char* at = makeRoom(header.before() + text.size());
    if (at == nullptr) return false;
    at = put(at, header);
    if (header.hasFacts) at = put(at, facts);
    text.copy(at, text.size());
    return true;
}

FileFacts TextPool::facts(Place place) const {
    FileFacts facts;
    if (header(place).hasFacts) std::memcpy(&facts, at(place) + sizeof(Header), sizeof facts);
    return facts;
}

std::size_t TextPool::bytes() const {
    return chunks_.empty() ? 0 : (chunks_.size() - 1) * chunkSize + chunks_.back().used;
}

void TextPool::clear() {
    if (chunks_.size() > 1) chunks_.resize(1);
    if (!chunks_.empty()) chunks_.front().used = 0;
    fill_ = 0;
}

}  // namespace fscan
