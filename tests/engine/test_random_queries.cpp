// Random searches of random trees: whichever way they are run, they find the same, and
// the same as a plain walk does.

#include <gtest/gtest.h>

#include <random>

#include "engine/cache_user.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_resultset_file.h"
#include "fscanner/fs/fs_resultset_vector.h"

namespace fscanner {
namespace {

namespace stdfs = std::filesystem;
using Random = std::mt19937;

std::string lower(std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

/// A criteria, and what it says in plain words.
struct Criterion {
    const wchar_t* text;
    bool (*holds)(const stdfs::path& file, bool caseSensitive);
};

bool isHeader(const stdfs::path& file, bool) {
    return file.filename() == "c.h";
}
bool lies(const stdfs::path& file, bool caseSensitive) {
    const std::string path = caseSensitive ? file.string() : lower(file.string());
    return path.find("/a/") != path.npos;
}

const Criterion kCriteria[] = {
    {L"", [](const stdfs::path&, bool) { return true; }},
    {L"[FILENAME]==\"c.h\"", isHeader},
    {L"[SIZE]>=1000", [](const stdfs::path& file, bool) { return stdfs::file_size(file) >= 1000; }},
    {L"[FILENAME]==\"*.h\" && [SIZE]<1500",
     [](const stdfs::path& file, bool cased) {
         return isHeader(file, cased) && stdfs::file_size(file) < 1500;
     }},
    {L"path([PATHID],[FILENAME])==\"*/a/*\"", lies},
    {L"1 2", [](const stdfs::path&, bool) { return false; }},
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

TEST_P(RandomQueries, FindTheSameInEveryWay) {
    // Names that differ by case, and in every second tree some that look like patterns:
    // what criteria and exclusions make of those is not said in plain words here.
    const std::vector<std::string> plain = {"a", "A", "b", "\xff", "sp ace", "c.h"};
    const std::vector<std::string> wild = {"a", "A", "a*", "q?", "\xff", "c.h"};
    Random random(14);
    std::size_t found = 0;
    for (int round = 0; round < 6; ++round) {
        const TempTree tree;
        const auto directories = plantTree(tree, round % 2 == 0 ? plain : wild, random);
        const CacheUser warm(GetParam());
        for (int i = 0; i < 12; ++i) {
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

INSTANTIATE_TEST_SUITE_P(Encodings, RandomQueries, testing::Values(false, true),
                         [](const auto& form) { return form.param ? "compressed" : "fixed"; });

}  // namespace
}  // namespace fscanner
