#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "fscanner/filetype/file_type_cache.h"

namespace fscanner {
namespace {

std::wstring lineOf(const Element& element) {
    return element.getID() < 0 ? L"" : element.getFileTypeInfo();
}

std::wstring pathOf(int batch, int number) {
    return L"/b" + std::to_wstring(batch) + L"/" + std::to_wstring(number);
}

void insertBatch(FileTypeCache& cache, int batch, int count) {
    for (int i = 0; i < count; ++i) {
        const std::wstring path = pathOf(batch, i);
        cache.insert(Element(batch, (path + L": text").c_str()), path);
    }
}

TEST(FileTypeCache, DropsWholeOldestBatchesButNeverTheCurrentOne) {
    const struct {
        const char* name;
        unsigned limit;
        std::vector<std::pair<int, int>> batches;  // number, count
        std::size_t left;
        int oldest;
    } cases[] = {
        {"just full", 0, {{1, 2000}, {2, 2096}}, 4096, 1},
        {"one too many drops the oldest batch", 0, {{1, 2000}, {2, 2096}, {3, 1}}, 2097, 2},
        {"one large batch stays whole", 0, {{1, 5000}}, 5000, 1},
        {"an overlong batch goes whole", 0, {{1, 10}, {2, 6000}, {3, 1}}, 1, 3},
        {"a number that came round again", 0, {{1, 10}, {2, 4086}, {1, 5}}, 4101, 1},
        {"a larger limit", 4100, {{1, 10}, {2, 4090}, {3, 1}}, 4091, 2},
        {"a smaller limit is not taken", 100, {{1, 50}, {2, 100}}, 150, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        FileTypeCache cache(c.limit);
        for (auto [batch, count] : c.batches) insertBatch(cache, batch, count);
        EXPECT_EQ(cache.size(), c.left);
        EXPECT_EQ(cache.find(L"", false).getID(), c.oldest);
        EXPECT_EQ(cache.lastID(), c.batches.back().first);
        EXPECT_EQ(cache.take(pathOf(c.oldest, 0)).getID(), c.oldest);
        EXPECT_EQ(cache.take(pathOf(c.oldest - 1, 0)).getID(), -1);
    }
}

// find() keeps its prefix rule although one file's key is the start of another's
// line. take(), which the checker uses, is exact.
TEST(FileTypeCache, FindsByBeginningAndTakesByPath) {
    FileTypeCache cache;
    cache.insert(Element(1, L"/d/a:b: ELF"), L"/d/a:b");
    cache.insert(Element(1, L"/d/a: text"), L"/d/a");
    cache.insert(Element(2, L"/d/a: newer"), L"/d/a");
    cache.insert(Element(2, L"/d/unindexed: x"));
    EXPECT_EQ(lineOf(cache.find(L"/d/a:", false)), L"/d/a:b: ELF");
    EXPECT_EQ(lineOf(cache.find(L"/D/a:", false)), L"");
    EXPECT_EQ(lineOf(cache.take(L"/d/a")), L"/d/a: text");
    EXPECT_EQ(lineOf(cache.take(L"/d/a")), L"/d/a: newer");
    EXPECT_EQ(lineOf(cache.take(L"/d/a")), L"");
    EXPECT_EQ(lineOf(cache.take(L"/d/unindexed")), L"");
    EXPECT_EQ(lineOf(cache.find(L"/d/a:", true)), L"/d/a:b: ELF");
    EXPECT_EQ(lineOf(cache.take(L"/d/a:b")), L"") << "removed by find, still indexed";
    EXPECT_EQ(lineOf(cache.find(L"/d/u", true)), L"/d/unindexed: x");
    EXPECT_EQ(cache.size(), 0U);
    Element element(0, L"a: text");
    element.setData(7, element.getFileTypeInfo() + 3, true);  // from its own line
    EXPECT_EQ(lineOf(element), L"text");
    EXPECT_EQ(Element(-2, L"x").getFileTypeInfo(), nullptr);
    EXPECT_EQ(Element(3, nullptr).getID(), -1);
}

}  // namespace
}  // namespace fscanner
