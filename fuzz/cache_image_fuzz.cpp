// A good cache with bytes of its files changed, or files cut: queries end with an answer
// or a code. Mostly the checksums are made right again, so that what is checked besides them has
// its turn. The input is a list of changes: file, kind, place, value.

#include "fuzz.h"
#include "hostile/cache_image.h"

namespace {

using namespace fscanner;

void damage(const CacheImage& image, Input& input) {
    const std::size_t file = input.byte() % kSums;
    const unsigned kind = input.byte();
    const std::size_t length = image.good(file).size(), at = input.word() % length;
    const std::uint32_t value = input.word();
    if (kind == 255) return image.cut(file, at);
    // Most of an index are empty heads: the chains' slots lie behind them.
    const std::size_t tail = length > 524288 && kind % 2 ? 524288 + at % (length - 524288) : at;
    std::string bytes;
    for (unsigned i = 0; i < 1 + kind / 2 % 4; ++i) bytes += static_cast<char>(value >> (8 * i));
    image.overwrite(file, std::min(tail, length - bytes.size()), bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static CacheImage fixed(false, 60), compact(true, 60);
    Input input(data, size);
    const unsigned first = input.byte();
    CacheImage& image = first & 128 ? compact : fixed;
    while (!input.empty()) damage(image, input);
    if (!(first & 32)) image.sumUp();
    for (unsigned turn = 0; turn < 2; ++turn) {
        bool right = false;
        const std::size_t query = (first + turn) % image.queries.size();
        const int status = image.ask(query, right, turn == 0 && first & 64 ? kAllOld : kDay);
        require(status == 0 || status == FS_CACHE_UNUSABLE);
    }
    image.restore();
    return 0;
}
