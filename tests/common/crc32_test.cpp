#include "fscanner/common/crc32.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace fscanner {
namespace {

using Bytes = std::vector<std::byte>;

Bytes counted(std::size_t count, int from, int step) {
    Bytes bytes;
    for (int value = from; bytes.size() < count; value += step)
        bytes.push_back(static_cast<std::byte>(value));
    return bytes;
}

// The first is the check value of the polynomial, the next four are those of RFC 3720, B.4.
TEST(Crc32c, KnownSums) {
    const struct {
        const char* what;
        Bytes bytes;
        std::uint32_t sum;
    } vectors[] = {
        {"digits", counted(9, '1', 1), 0xE3069283},   {"zeros", counted(32, 0, 0), 0x8A9136AA},
        {"ones", counted(32, 0xFF, 0), 0x62A8AB43},   {"rising", counted(32, 0, 1), 0x46DD794E},
        {"falling", counted(32, 31, -1), 0x113FDB5C}, {"nothing", {}, 0}};
    for (const auto& vector : vectors) {
        EXPECT_EQ(crc32c(vector.bytes), vector.sum) << vector.what;
        EXPECT_EQ(crc32cByTable(vector.bytes), vector.sum) << vector.what;
    }
}

TEST(Crc32c, AllWaysAgreeAtAnyLengthAndAlignment) {
    std::mt19937 random(11);
    Bytes bytes(3 * 4096 + 64);
    for (std::byte& byte : bytes) byte = static_cast<std::byte>(random());
    for (std::size_t from = 0; from < 9; ++from) {
        for (std::size_t length = 0; length < 200; ++length) {
            const std::span<const std::byte> part(bytes.data() + from, length);
            ASSERT_EQ(crc32c(part), crc32cByTable(part)) << from << ", " << length;
        }
        for (const std::size_t size : {64U, 192U, 4096U}) {
            const auto sums = crc32cOfThree(bytes.data() + from, size);
            for (std::size_t i = 0; i < sums.size(); ++i)
                ASSERT_EQ(sums[i], crc32cByTable({bytes.data() + from + i * size, size}))
                    << from << ", block " << i << " of " << size;
        }
    }
}

}  // namespace
}  // namespace fscanner
