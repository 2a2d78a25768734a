#include <gmock/gmock.h>
#include <cstring>
#include <string>

#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/fs_serializator.h"

namespace fscanner {
namespace {

TEST(Query, KeepsItsListsApartAndInOrder) {
    FsQuery query;
    EXPECT_THAT(
        std::vector({query.addIncludePath(L"/a", true), query.addIncludePath(L"/a", false),
                     query.addExcludePath(L"/b", false), query.addIncludeFileSystem(L"ext4"),
                     query.addExcludeFileSystem(L"proc"), query.addExcludeFileSystem(L"proc")}),
        testing::Each(true));
    EXPECT_THAT(
        std::vector({query.addIncludePath(nullptr, true), query.addExcludePath(nullptr, true),
                     query.addIncludeFileSystem(nullptr), query.addExcludeFileSystem(nullptr)}),
        testing::Each(false));
    EXPECT_EQ(query.getIncludedPaths(), (std::vector<PathInfo>{{L"/a", true}, {L"/a", false}}));
    EXPECT_EQ(query.getExcludedPaths(), (std::vector<PathInfo>{{L"/b", false}}));
    EXPECT_EQ(query.getIncludedFileSystems(), std::vector{FileSystemInfo(L"ext4")});
    EXPECT_EQ(query.getExcludedFileSystems(), std::vector(2, FileSystemInfo(L"proc")));
    EXPECT_THAT(
        std::vector({query.clearExcludePaths(), query.clearIncludeFileSystems(),
                     query.getExcludedPaths().empty(), query.getIncludedFileSystems().empty()}),
        testing::Each(true));
    EXPECT_EQ(query.getIncludedPaths().size() + query.getExcludedFileSystems().size(), 4u);
}

TEST(Query, KeepsACopyOfItsTextAndACaseMode) {
    FsQuery query;
    EXPECT_EQ(query.getQuery(), nullptr);
    std::wstring text = L" [SIZE] > 5 ";
    EXPECT_TRUE(query.setQuery(text.c_str()));
    text.clear();
    EXPECT_FALSE(query.setQuery(nullptr));
    EXPECT_FALSE(query.setSimpleQuery(L"x", 1));
    EXPECT_TRUE(query.setQuery(query.getQuery() + 1)) << "a part of its own text";
    EXPECT_STREQ(query.getQuery(), L"[SIZE] > 5 ");
    EXPECT_TRUE(query.getCaseSensitive());
    for (const auto& [mode, sensitive] :
         {std::pair{1u, false}, {3u, false}, {0u, true}, {1u, false}, {2u, true}}) {
        query.setCaseSensitive(mode);
        EXPECT_EQ(query.getCaseSensitive(), sensitive) << mode;
    }
}

#if defined(__x86_64__)
// The position of a virtual function as callers see it. Hosts and plug-ins are
// compiled on their own, so the order is part of the binary interface.
template <typename Method>
std::size_t slotOf(Method method) {
    std::size_t word;
    std::memcpy(&word, &method, sizeof word);
    return (word - 1) / sizeof(void*) + 1;
}

template <typename... Methods>
void expectSlotsFrom(std::size_t slot, Methods... methods) {
    for (const std::size_t actual : {slotOf(methods)...}) EXPECT_EQ(actual, slot++);
}

TEST(Slots, AreInTheirPlaces) {
    expectSlotsFrom(
        1, &FsQuery::addIncludePath, &FsQuery::addExcludePath, &FsQuery::addIncludeFileSystem,
        &FsQuery::addExcludeFileSystem, &FsQuery::setSimpleQuery, &FsQuery::setQuery,
        &FsQuery::setCaseSensitive, &FsQuery::getIncludedPaths, &FsQuery::getExcludedPaths,
        &FsQuery::getIncludedFileSystems, &FsQuery::getExcludedFileSystems, &FsQuery::getQuery,
        &FsQuery::getCaseSensitive, &FsQuery::clearIncludePaths, &FsQuery::clearExcludePaths,
        &FsQuery::clearIncludeFileSystems, &FsQuery::clearExcludeFileSystems);
    EXPECT_EQ(slotOf(&FsProvider::executeQuery), 6u);
    EXPECT_EQ(slotOf(&FsSerializator::loadString), 4u);
    EXPECT_EQ(slotOf(&FsSerializator::reset), 8u);

    // Classes whose destructors come first.
    expectSlotsFrom(3, &FsResultSet::getReader, &FsResultSet::getWriter);
    expectSlotsFrom(3, &FsResultSetReader::moveFirst, &FsResultSetReader::getNext,
                    &FsResultSetReader::sort, &FsResultSetReader::setBookmark,
                    &FsResultSetReader::toBookmark);
    using AddFacts =
        int (FsResultSetWriter::*)(const wchar_t*, const wchar_t*, unsigned long long, unsigned);
    EXPECT_EQ(slotOf(static_cast<AddFacts>(&FsResultSetWriter::addRecord)), 3u);
    EXPECT_EQ(slotOf(&FsResultSetWriter::close), 5u);
}
#endif

}  // namespace
}  // namespace fscanner
