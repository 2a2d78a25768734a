// Random searches of random trees find the same in whichever way they are run, and the same as a
// plain walk.

#include <optional>
#include <random>

#include "engine/cache_user.h"
#include "engine/plain_walk.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_resultset_file.h"
#include "fscanner/fs/fs_resultset_vector.h"
#include "support/listener.h"
#include "support/scoped_locale.h"
#include "support/test_workers.h"

namespace fscanner {
namespace {

namespace stdfs = std::filesystem;
using Random = std::mt19937;
using namespace plain;

/// A criteria, and its meaning as plain code. Other criteria are tested further down.
template <typename Fact>
Question about(const wchar_t* criteria, Fact value) {
    return {.include = {}, .criteria = criteria, .value = value};
}

const Question kCriteria[] = {
    {},
    about(L"[FILENAME]==\"c.h\"", [](const File& file, bool) { return file.name == "c.h"; }),
    about(L"[SIZE]>=1000", [](const File& file, bool) { return file.info.st_size >= 1000; }),
    about(L"[FILENAME]==\"*.h\" && [SIZE]<1500",
          [](const File& file, bool) { return file.name == "c.h" && file.info.st_size < 1500; }),
    about(L"path([PATHID],[FILENAME])==\"*/a/*\"",
          [](const File& file, bool cased) {
              return equal(toWide("/" + file.directory + "/" + file.name), L"*/a/*", cased);
          }),
    about(L"1 2", [](const File&, bool) { return 0; }),
    about(L"[FILENAME]==\"k\"",
          [](const File& file, bool cased) { return named(file, L"k", cased); }),
};

Question randomQuestion(const Names& directories, Random& random) {
    const auto pick = [&] {
        return directories[random() % directories.size()] + (random() % 4 != 0 ? "+" : "");
    };
    Question question = kCriteria[random() % std::size(kCriteria)];
    for (unsigned i = 0; i <= random() % 2; ++i) question.include.push_back(pick());
    for (unsigned i = 0; i < random() % 3; ++i) question.exclude.push_back(pick());
    question.cased = random() % 3 != 0;
    if (random() % 2 == 0) question.kinds = static_cast<unsigned>(random() % (FS_KINDS_ALL + 1));
    // Of several included paths, one inside another says nothing of depths.
    if (random() % 3 == 0 && question.include.size() == 1)
        question.depth = {static_cast<unsigned>(random() % 3), static_cast<unsigned>(random() % 5)};
    return question;
}

/// Plants a tree and returns its directories, "" for the tree itself.
Names plantTree(const TempTree& tree, const Names& names, Random& random) {
    Names directories = {""};
    for (int i = 0; i < 120; ++i) {
        const std::string& parent = directories[random() % directories.size()];
        const std::string path =
            (parent.empty() ? "" : parent + "/") + names[random() % names.size()];
        if (stdfs::exists(tree.path(path))) continue;
        if (random() % 2 == 0 && directories.size() < 30) {
            tree.directory(path);
            directories.push_back(path);
        } else {
            tree.file(path, random() % 3 * 1000);
        }
    }
    return directories;
}

/// Runs a query into a result set and reads that back.
template <typename Set>
std::vector<std::string> results(const CacheUser& cache, const FsQuery& query, bool kept) {
    Set set;
    FsResultSetWriter* const writer = set.getWriter();
    EXPECT_EQ(cache.query(*writer, query, kDay, kMinute, kept), 0);
    writer->close();
    const std::unique_ptr<FsResultSetReader> reader(set.getReader());
    CollectingWriter found;
    FsFileInfo record;
    for (reader->moveFirst(); reader->getNext(record);) found.addRecord(record);
    return found.sorted();
}

class RandomQueries : public testing::TestWithParam<bool> {};

TEST_P(RandomQueries, FindTheSameWhereverTheySearch) {
    // Names that differ by case. Every second tree also has names that look like patterns: plain
    // code does not say what criteria and exclusions make of those.
    const Names names = {"a", "A", "b", "\xff", "sp ace", "c.h", "k", "K", "\u212a"};
    const Names wild = {"a", "A", "a*", "q?", "\xff", "c.h", "*", "\u212a"};
    const ScopedLocale locale("C.UTF-8");
    if (!locale.available()) GTEST_SKIP() << "no C.UTF-8 here";
    Random random(14);
    std::size_t found = 0;
    for (int round = 0; round < 6; ++round) {
        const TempTree tree;
        const auto directories = plantTree(tree, round % 2 == 0 ? names : wild, random);
        struct stat info {};
        ASSERT_EQ(::stat(tree.path().c_str(), &info), 0);
        std::vector<File> files;
        walk(tree.path(), "", {{info.st_dev, {false, ""}}}, files);
        const CacheUser warm(GetParam());
        std::optional<TestWorkers> workers;
        if (round >= 3) workers.emplace(3);
        for (int i = 0; i < 24; ++i) {
            const Question question = randomQuestion(directories, random);
            SCOPED_TRACE(toMultibyte(question.criteria) + testing::PrintToString(question.include) +
                         testing::PrintToString(question.exclude) +
                         (question.cased ? "" : " without case"));
            FsQuery query;
            add(query, question, tree);
            CollectingWriter direct;
            ASSERT_EQ(fsScanQuery(direct, query, kMinute), 0);
            if (round % 2 == 0) {
                EXPECT_EQ(direct.sorted(), answerOf(question, tree, files));
                found += direct.paths.size();
            }
            const CacheUser cold(GetParam());
            for (const CacheUser* cache : {&cold, &warm}) {
                EXPECT_EQ(results<FsResultSet_OnFile>(*cache, query, false), direct.sorted());
                EXPECT_EQ(results<FsResultSet_OnVector>(*cache, query, true), direct.sorted());
            }
        }
    }
    EXPECT_GT(found, 50U);
}

// ---- Criteria that nobody wrote ---------------------------------------------

/// A criteria of any form, with names and numbers that may or may not be in a tree.
std::wstring randomCriteria(Random& random, int depth = 3) {
    const auto pick = [&random](const auto& list) {
        return std::wstring(list[random() % std::size(list)]);
    };
    static constexpr const wchar_t* texts[] = {
        L"a",   L"A",     L"a*", L"*",      L"?",    L"k",     L"c.h",   L"*.h",
        L"C*",  L"\x3a9", L"",   L"*a*",    L"**",   L"?a",    L"a*b",   L"*\xe9",
        L"*I*", L"*k",    L"*.", L"\x212a", L"?*a*", L"a*b*h", L"*b*.h", L"ik\x130"};
    static constexpr const wchar_t* numbers[] = {L"0",          L"1",  L"1000", L"2000",
                                                 L"5000000000", L"-1", L"4096"};
    static constexpr const wchar_t* relations[] = {L"==", L"!=", L"<", L"<=", L">", L">="};
    static constexpr const wchar_t* joins[] = {L" && ", L" && ", L" && ", L" || ",
                                               L" | ",  L" + ",  L" - ",  L" & "};
    const auto text = [&] { return L'"' + pick(texts) + L'"'; };
    if (depth > 0 && random() % 3 != 0) {
        const std::wstring left = randomCriteria(random, depth - 1);
        switch (random() % 5) {
            case 0:
                return L"!(" + left + L")";
            case 1:
                return L"(" + left + L")" + pick(relations) + pick(numbers);
            default:
                return L"(" + left + L")" + pick(joins) + L"(" + randomCriteria(random, depth - 1) +
                       L")";
        }
    }
    const auto name = [&] { return L"[FILENAME]==" + text(); };
    switch (random() % 10) {
        case 9: {
            std::wstring names = name();
            for (auto more = random() % 3; more > 0; --more) names += L" || " + name();
            return names;
        }
        case 0:
            return text() + pick(relations) + L"[FILENAME]";
        case 1:
            return L"[SIZE]" + pick(relations) + pick(numbers);
        case 2:
            return pick(numbers) + pick(relations) + L"[SIZE]";
        case 3:
            return L"[ATTR] & 8192";
        case 4:
            return L"[SHORTFILENAME]" + pick(relations) + text();
        case 5:
            return L"path([PATHID],[FILENAME])==\"*" + pick(texts) + L"\"";
        case 6:
            return pick(numbers) + L"/[SIZE]";
        default:
            return L"[FILENAME]" + pick(relations) + text();
    }
}

/// Tests each file on its own with the whole criteria: no filter and no index is used.
std::vector<std::string> testedOneByOne(const TempTree& tree, FsRecordFilter& filter) {
    std::vector<std::string> found;
    for (const auto& entry : stdfs::recursive_directory_iterator(tree.path())) {
        if (entry.is_directory()) continue;
        FsFileInfo record;
        record.setFilePath((toWide(entry.path().parent_path().string()) + L"/").c_str());
        record.setFileName(toWide(entry.path().filename().string()).c_str());
        record.updateInfo();
        if (filter.matches(record)) found.push_back(entry.path());
    }
    std::sort(found.begin(), found.end());
    return found;
}

TEST_P(RandomQueries, CriteriaOfAnyFormFindTheSameInEveryWay) {
    // On the edges of what can be judged without decoding.
    const Names wild = {"a",
                        "A",
                        "a*",
                        "*",
                        "q?",
                        "k",
                        "c.h",
                        "\u212a",
                        "\u2126",
                        "\u03c9",
                        "ik\u0130",
                        "a\xe9",
                        "C.H",
                        "aB.bh",
                        "ikI",
                        "ba.",
                        "\U0001F600" + std::string(70, 'a')};
    // No pattern among these: they are looked up.
    const Names names = {"a", "A", "b", "k", "K", "c.h", "\u212a", "\u2126"};
    Random random(1200);
    for (int round = 0; round < 6; ++round) {
        const ScopedLocale locale(round < 4 ? "C.UTF-8" : "C");
        if (!locale.available()) GTEST_SKIP() << "no C.UTF-8 here";
        const TempTree tree;
        plantTree(tree, round % 2 == 0 ? wild : names, random);
        const CacheUser monitored(GetParam(), true);
        CacheUser cache(GetParam());
        FsQuery query;
        query.addIncludePath((L"*:" + tree.wide()).c_str(), true);
        results<FsResultSet_OnVector>(cache, query, false);
        results<FsResultSet_OnVector>(monitored, query, false);
        for (int i = 0; i < 150; ++i) {
            const std::wstring criteria = randomCriteria(random);
            const bool caseSensitive = random() % 2 != 0;
            const std::string what = toMultibyte(criteria) + (caseSensitive ? "" : " without case");
            query.setQuery(criteria.c_str());
            query.setCaseSensitive(caseSensitive ? 0 : 1);
            const auto filter = FsRecordFilter::create(criteria.c_str(), caseSensitive);
            ASSERT_NE(filter, nullptr) << what;
            const auto expected = testedOneByOne(tree, *filter);
            Listener heard;
            const auto undecided = [&heard] {
                std::sort(heard.undecidedPaths.begin(), heard.undecidedPaths.end());
                return std::exchange(heard.undecidedPaths, {});
            };
            CollectingWriter direct;
            ASSERT_EQ(fsScanQuery(direct, query, kMinute), 0);
            EXPECT_EQ(direct.sorted(), expected) << what;
            const auto left = undecided();
            for (const bool verify : {false, true}) {
                cache.verify = verify;
                EXPECT_EQ(results<FsResultSet_OnVector>(cache, query, false), expected) << what;
                EXPECT_EQ(undecided(), left) << what << (verify ? " verified" : "");
            }
            EXPECT_EQ(results<FsResultSet_OnVector>(monitored, query, true), expected) << what;
            EXPECT_EQ(results<FsResultSet_OnFile>(cache, query, true), expected) << what;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Encodings, RandomQueries, testing::Values(false, true),
                         [](const auto& form) { return form.param ? "compressed" : "fixed"; });

}  // namespace
}  // namespace fscanner
