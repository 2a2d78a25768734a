// The mapped file: lengths in memory and on disk, and its end.

#include <gmock/gmock.h>

#include <climits>
#include <cstring>
#include <random>
#include <utility>

#include "fscanner/platform/linuxfile.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

class MappedFile : public testing::Test {
protected:
    unsigned write(const std::string& bytes) {
        return file.write(bytes.data(), static_cast<unsigned>(bytes.size()));
    }
    std::string read(unsigned count) {
        std::string bytes(count, '?');
        bytes.resize(file.read(bytes.data(), count));
        return bytes;
    }
    unsigned onDisk() {
        unsigned length = 0;
        EXPECT_TRUE(file.size(&length));
        return length;
    }
    void reopen() {
        ASSERT_TRUE(file.close());
        ASSERT_TRUE(file.open());
    }

    TemporaryDirectory directory;
    std::string name = directory / "data";
    LinuxMmFile file{name.c_str()};
};

// Random operations against a plain string that follows the same rules. It grows by
// steps of 32 KiB; and a write that begins inside the content and makes the file grow
// lengthens the content by all that it writes. Only a read changes the end flag.
TEST_F(MappedFile, AgreesWithAModelOfItself) {
    std::mt19937 random(7);
    const auto below = [&](unsigned long n) { return static_cast<unsigned>(random() % n); };
    std::string model;
    unsigned mapped = 0;
    bool endMet = false;
    ASSERT_TRUE(file.create());
    for (int i = 0; i < 2000; ++i) {
        const auto end = static_cast<unsigned>(model.size());
        const unsigned at = below(4) == 0 ? end : below(end + 1);
        ASSERT_TRUE(file.seek(at, SEEK_FROM_START));
        ASSERT_EQ(file.eof(), endMet) << "step " << i;
        if (below(3) == 0) {
            const unsigned count = below(4) == 0 ? end - at : below(50000);
            const std::string expected = model.substr(at, count);
            ASSERT_EQ(read(count), expected) << "step " << i;
            endMet = expected.size() < count;
            continue;
        }
        const unsigned sizes[] = {below(100000), 32767, 32768, mapped - end};  // the last fills it
        const std::string bytes(below(20) == 0 ? sizes[below(4)] : below(200),
                                static_cast<char>('a' + i % 26));
        const auto count = static_cast<unsigned>(bytes.size());
        if (at + count > model.size()) {
            const bool room = model.size() + count <= mapped;
            model.resize(room ? at + count : model.size() + count);
            if (!room) mapped += count / 32768 * 32768 + 32768;
        }
        model.replace(at, count, bytes);
        ASSERT_EQ(write(bytes), count);
        ASSERT_EQ(onDisk(), mapped) << "step " << i;
        ASSERT_EQ(file.logicalSize(), model.size()) << "step " << i;
        ASSERT_EQ(file.tell(), at + count) << "step " << i;
        if (below(100) == 0) {
            reopen();
            endMet = false;
            mapped = static_cast<unsigned>(model.size());
        }
    }
    ASSERT_TRUE(file.close());
    EXPECT_EQ(readWholeFile(name), model);
}

TEST_F(MappedFile, SeeksInsideItsContentOnly) {
    const struct {
        long offset;
        int origin;
        long position;  // -1: refused
    } rows[] = {
        {0, 1, 0},    {10, 1, 10}, {11, 1, -1}, {-1, 1, -1},       {6, 2, 10},
        {7, 2, -1},   {-4, 2, 0},  {-5, 2, -1}, {0, 3, 10},        {-10, 3, 0},
        {-11, 3, -1}, {1, 3, -1},  {0, 0, -1},  {LONG_MAX, 2, -1}, {LONG_MIN, 3, -1},
    };
    ASSERT_TRUE(file.create());
    write("0123456789");
    for (const auto& row : rows) {
        ASSERT_TRUE(file.seek(4, SEEK_FROM_START));
        const bool moved = file.seek(row.offset, row.origin);
        EXPECT_EQ(moved, row.position != -1) << row.offset << " from " << row.origin;
        EXPECT_EQ(file.tell(), moved ? row.position : 4) << row.offset << " from " << row.origin;
    }
}

// Notes what each block held, and refuses on demand.
struct Watch : BlockWatch {
    bool beforeChange(unsigned offset, std::span<const std::byte> block) override {
        seen += std::to_string(offset) + ":" + std::to_string(block.size()) +
                static_cast<char>(block[0]) + " ";
        return !refuses;
    }
    std::string take() { return std::exchange(seen, ""); }
    std::string seen;
    bool refuses = false;
};

TEST_F(MappedFile, ShowsBlocksBeforeTheirFirstChangeOnly) {
    ASSERT_TRUE(file.create());
    write(std::string(300, 'a'));
    Watch watch;
    file.addWatch(watch);
    const struct {
        unsigned at;
        unsigned count;
        const char* shown;
    } writes[] = {{300, 10, ""},
                  {255, 2, "128:128a 256:44a "},
                  {200, 60, ""},
                  {305, 3, ""},
                  {10, 400, "0:128a "}};
    for (const auto& one : writes) {
        file.seek(one.at, SEEK_FROM_START);
        EXPECT_EQ(write(std::string(one.count, 'b')), one.count);
        EXPECT_EQ(watch.take(), one.shown) << one.at;
    }
    Watch second;
    file.addWatch(second);
    std::memset(file.change(0, 129), 'c', 129);
    EXPECT_EQ(watch.take() + second.take(), "0:128a 128:128b 0:128a 128:128b ");
    second.refuses = true;
    file.seek(130, SEEK_FROM_START);
    EXPECT_EQ(write(std::string(500, 'd')), 0u);
    EXPECT_EQ(file.change(390, 1), nullptr);
    EXPECT_TRUE(file.change(0, 256)) << "shown already";
    EXPECT_EQ(file.logicalSize(), 410u);
    reopen();
    EXPECT_TRUE(file.change(390, 1)) << "watched until it is closed";
    EXPECT_FALSE(file.change(400, 11)) << "behind the content";
    EXPECT_FALSE(file.change(411, 0)) << "behind the content";
}

TEST_F(MappedFile, OpensOnceAndClosesOnce) {
    ASSERT_TRUE(file.create());
    EXPECT_THAT(std::vector({file.create(), file.open()}), testing::Each(false));
    ASSERT_TRUE(file.close());
    EXPECT_EQ(write("abc"), 0u);
    EXPECT_EQ(read(3), "");
    {
        LinuxMmFile other(name.c_str());
        ASSERT_TRUE(other.open());  // an empty file is not mapped, and can be written
        EXPECT_EQ(other.write("abc", 3), 3u);
    }
    EXPECT_EQ(readWholeFile(name), "abc") << "cut by the destructor";
    LinuxMmFile nameless(nullptr);
    unsigned length;
    EXPECT_THAT(
        std::vector({nameless.create(), nameless.open(), nameless.close(), nameless.size(&length)}),
        testing::Each(false));
}

TEST_F(MappedFile, RefusesWhatPasses4GiB) {
    ASSERT_TRUE(file.create());
    ASSERT_TRUE(file.close());
    ASSERT_EQ(::truncate(name.c_str(), 1L << 32), 0);
    EXPECT_FALSE(file.open());
    unsigned length;
    EXPECT_FALSE(file.size(&length));

    ASSERT_EQ(::truncate(name.c_str(), (1L << 32) - 100), 0);
    ASSERT_TRUE(file.open());
    ASSERT_TRUE(file.seek(0, SEEK_FROM_END));
    EXPECT_EQ(write(std::string(200, 'x')), 0u);
    EXPECT_EQ(write("x"), 0u) << "the next step would pass it";
    EXPECT_EQ(file.write(name.data(), UINT_MAX), 0u);
    EXPECT_EQ(file.tell(), (1L << 32) - 100);
    ASSERT_TRUE(file.close());
    EXPECT_EQ(std::filesystem::file_size(name), (1UL << 32) - 100);
}

}  // namespace
}  // namespace fscanner
