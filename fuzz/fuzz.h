#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fscanner/common/utf8.h"

/// What libFuzzer, or the replay, calls with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fscanner {

/// Ends the program where an answer is wrong, so that the fuzzer keeps the input.
inline void require(bool holds) {
    if (!holds) std::abort();
}

inline std::string_view asText(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Takes an input to pieces from its front; zeros and empty texts when it is used up.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : left_(asText(data, size)) {}

    bool empty() const { return left_.empty(); }
    unsigned byte() {
        if (left_.empty()) return 0;
        const auto value = static_cast<unsigned char>(left_.front());
        left_.remove_prefix(1);
        return value;
    }
    std::uint32_t word() {
        std::uint32_t value = 0;
        for (unsigned i = 0; i < 4; ++i) value |= std::uint32_t{byte()} << (8 * i);
        return value;
    }
    /// Up to the next `end`, which is dropped.
    std::string_view until(char end) {
        const std::string_view piece = left_.substr(0, left_.find(end));
        left_.remove_prefix(std::min(piece.size() + 1, left_.size()));
        return piece;
    }
    std::string_view rest() const { return left_; }

private:
    std::string_view left_;
};

/// As the library's callers have it: without a terminator inside.
inline std::wstring wideText(std::string_view bytes) {
    return toWide(bytes.substr(0, bytes.find('\0')));
}

}  // namespace fscanner
