#include <gtest/gtest.h>

#include <vector>

#include "fscanner/platform/directory.h"

namespace fscanner {
namespace {

TEST(DirectoryEntries, ComeBackFromTheLastToTheFirstWhateverTheirLength) {
    DirectoryEntries entries;
    const EntryType types[] = {EntryType::socket, EntryType::directory, EntryType::unknown};
    // Names of more than 255 bytes occur: 255 characters on FAT in UTF-8, or on FUSE.
    const std::vector<std::size_t> lengths = {1, 254, 255, 256, 257, 512, 765, 1024, 65000, 3, 0};
    for (int round = 0; round < 2; ++round) {
        for (std::size_t i = 0; i < lengths.size(); ++i)
            entries.add(std::string(lengths[i], static_cast<char>('a' + i)), types[i % 3]);
        DirectoryEntries::Entry entry;
        for (std::size_t i = lengths.size(); i-- > 0;) {
            ASSERT_TRUE(entries.takeLast(entry)) << lengths[i];
            EXPECT_EQ(entry.name, std::string(lengths[i], static_cast<char>('a' + i)));
            EXPECT_EQ(entry.name.data()[entry.name.size()], '\0');
            EXPECT_EQ(entry.type, types[i % 3]);
        }
        EXPECT_FALSE(entries.takeLast(entry));
        entries.clear();
    }
}

TEST(DirectoryEntries, OfAHugeDirectoryOccupyNoMemoryForLong) {
    DirectoryEntries entries;
    const auto fill = [&entries] {
        for (int i = 0; i < 40; ++i) entries.add(std::string(60000, 'x'), EntryType::file);
        return entries.bytes();
    };
    EXPECT_GE(fill(), 40U * 60000);
    entries.clear();
    EXPECT_LT(entries.bytes(), 1000U) << "cleared";
    fill();
    entries = DirectoryEntries();
    EXPECT_LT(entries.bytes(), 1000U) << "replaced";
}

}  // namespace
}  // namespace fscanner
