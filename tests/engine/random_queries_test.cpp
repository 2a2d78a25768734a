// Random searches of random trees: whichever way they are run, they find the same, and
// the same as a plain walk does.

#include <random>

#include "engine/cache_user.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_resultset_file.h"
#include "fscanner/fs/fs_resultset_vector.h"
#include "support/listener.h"
#include "support/scoped_locale.h"

namespace fscanner {
namespace {

namespace stdfs = std::filesystem;
using Random = std::mt19937;

std::string lower(std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

/// A criteria, and what it says in plain words. Others are judged further down.
struct Criterion {
    const wchar_t* text;
    bool (*holds)(const stdfs::path& file, bool caseSensitive);
};

bool isHeader(const stdfs::path& file, bool) {
    return file.filename() == "c.h";
}
bool all(const stdfs::path&, bool) {
    return true;
}
bool none(const stdfs::path&, bool) {
    return false;
}
/// With the case ignored the Kelvin sign is a "k", too.
bool isKelvin(const stdfs::path& file, bool caseSensitive) {
    const std::string name = file.filename();
    return name == "k" || (!caseSensitive && (name == "K" || name == "\u212a"));
}
bool lies(const stdfs::path& file, bool caseSensitive) {
    const std::string path = caseSensitive ? file.string() : lower(file.string());
    return path.find("/a/") != path.npos;
}

const Criterion kCriteria[] = {
    {L"", all},
    {L"[FILENAME]==\"c.h\"", isHeader},
    {L"[SIZE]>=1000", [](const stdfs::path& file, bool) { return stdfs::file_size(file) >= 1000; }},
    {L"[FILENAME]==\"*.h\" && [SIZE]<1500",
     [](const stdfs::path& file, bool cased) {
         return isHeader(file, cased) && stdfs::file_size(file) < 1500;
     }},
    {L"path([PATHID],[FILENAME])==\"*/a/*\"", lies},
    {L"1 2", none},
    {L"[FILENAME]==\"k\"", isKelvin},
};

struct Place {
    std::string path;
    bool recursive;

    bool covers(std::string directory, bool caseSensitive) const {
        const std::string own = caseSensitive ? path : lower(path);
        if (!caseSensitive) directory = lower(directory);
        return directory == own || (recursive && directory.starts_with(own + "/"));
    }
};

struct Search {
    std::vector<Place> include, exclude;
    const Criterion* criterion;
    bool caseSensitive;

    Search(const std::vector<std::string>& directories, Random& random) {
        const auto pick = [&] {
            return Place{directories[random() % directories.size()], random() % 4 != 0};
        };
        for (unsigned i = 0; i <= random() % 2; ++i) include.push_back(pick());
        for (unsigned i = 0; i < random() % 3; ++i) exclude.push_back(pick());
        criterion = &kCriteria[random() % std::size(kCriteria)];
        caseSensitive = random() % 3 != 0;
    }
    void into(FsQuery& query) const {
        const auto entry = [](const Place& place) { return toWide("*:" + place.path); };
        for (const Place& place : include)
            query.addIncludePath(entry(place).c_str(), place.recursive);
        for (const Place& place : exclude)
            query.addExcludePath(entry(place).c_str(), place.recursive);
        query.setQuery(criterion->text);
        query.setCaseSensitive(caseSensitive ? 0 : 1);
    }
    /// What it finds below `root`. The case mode is not about where to search.
    std::vector<std::string> reference(const std::string& root) const {
        const auto anyCovers = [](const auto& places, const std::string& directory, bool cased) {
            return std::any_of(places.begin(), places.end(),
                               [&](const Place& place) { return place.covers(directory, cased); });
        };
        std::vector<std::string> found;
        for (const auto& entry : stdfs::recursive_directory_iterator(root)) {
            const std::string directory = entry.path().parent_path();
            if (!entry.is_directory() && anyCovers(include, directory, true) &&
                !anyCovers(exclude, directory, caseSensitive) &&
                criterion->holds(entry.path(), caseSensitive))
                found.push_back(entry.path());
        }
        std::sort(found.begin(), found.end());
        return found;
    }
};

std::ostream& operator<<(std::ostream& out, const Search& search) {
    out << toMultibyte(search.criterion->text) << (search.caseSensitive ? "" : " without case");
    for (const Place& place : search.include)
        out << " " << place.path << (place.recursive ? "+" : "");
    for (const Place& place : search.exclude)
        out << " but " << place.path << (place.recursive ? "+" : "");
    return out;
}

/// Plants a tree and returns its directories.
std::vector<std::string> plantTree(const TempTree& tree, const std::vector<std::string>& names,
                                   Random& random) {
    std::vector<std::string> directories = {tree.path()};
    for (int i = 0; i < 120; ++i) {
        const std::string& parent = directories[random() % directories.size()];
        const std::string path = parent + "/" + names[random() % names.size()];
        if (stdfs::exists(path)) continue;
        if (random() % 2 == 0 && directories.size() < 30) {
            stdfs::create_directory(path);
            directories.push_back(path);
        } else {
            writeWholeFile(path, std::string(random() % 3 * 1000, 'x'));
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
    // Names that differ by case, and in every second tree some that look like patterns:
    // what criteria and exclusions make of those is not said in plain words here.
    const std::vector<std::string> plain = {"a",   "A", "b", "\xff",  "sp ace",
                                            "c.h", "k", "K", "\u212a"};
    const std::vector<std::string> wild = {"a", "A", "a*", "q?", "\xff", "c.h", "*", "\u212a"};
    const ScopedLocale locale("C.UTF-8");
    if (!locale.available()) GTEST_SKIP() << "no C.UTF-8 here";
    Random random(14);
    std::size_t found = 0;
    for (int round = 0; round < 6; ++round) {
        const TempTree tree;
        const auto directories = plantTree(tree, round % 2 == 0 ? plain : wild, random);
        const CacheUser warm(GetParam());
        for (int i = 0; i < 24; ++i) {
            const Search search(directories, random);
            FsQuery query;
            search.into(query);
            CollectingWriter direct;
            ASSERT_EQ(fsScanQuery(direct, query, kMinute), 0);
            if (round % 2 == 0) {
                EXPECT_EQ(direct.sorted(), search.reference(tree.path())) << search;
                found += direct.paths.size();
            }
            const CacheUser cold(GetParam());
            for (const CacheUser* cache : {&cold, &warm}) {
                EXPECT_EQ(results<FsResultSet_OnFile>(*cache, query, false), direct.sorted())
                    << search;
                EXPECT_EQ(results<FsResultSet_OnVector>(*cache, query, true), direct.sorted())
                    << search;
            }
        }
    }
    EXPECT_GT(found, 50U);
}

// ---- Criteria that nobody wrote ---------------------------------------------

/// A criteria of any form, with names and numbers that a tree has and has not.
std::wstring randomCriteria(Random& random, int depth = 3) {
    const auto pick = [&random](const auto& list) {
        return std::wstring(list[random() % std::size(list)]);
    };
    static constexpr const wchar_t* texts[] = {L"a",      L"A",   L"a*",  L"*",  L"?",
                                               L"k",      L"c.h", L"*.h", L"C*", L"\x3a9",
                                               L"\x212a", L"",    L"*a*"};
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
    switch (random() % 9) {
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

/// Each file tested on its own, by the whole criteria: no filter, no index.
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
    const ScopedLocale locale("C.UTF-8");
    if (!locale.available()) GTEST_SKIP() << "no C.UTF-8 here";
    const std::vector<std::string> wild = {"a", "A",   "a*",  "*",      "q?",     "k",
                                           "K", "c.h", "C.H", "\u212a", "\u2126", "\u03c9"};
    // No pattern among these: they are looked up.
    const std::vector<std::string> plain = {"a", "A", "b", "k", "K", "c.h", "\u212a", "\u2126"};
    Random random(1200);
    for (int round = 0; round < 4; ++round) {
        const TempTree tree;
        plantTree(tree, round % 2 == 0 ? wild : plain, random);
        const CacheUser cache(GetParam()), monitored(GetParam(), true);
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
            EXPECT_EQ(results<FsResultSet_OnVector>(cache, query, false), expected) << what;
            // Commands are evaluated without the filter that spares others.
            if (criteria.find(L"path(") == criteria.npos) {
                EXPECT_EQ(undecided(), left) << what;
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
