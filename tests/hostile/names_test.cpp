// Names of any bytes, in locales that read them differently: each is found once, and comes
// back as its bytes.

#include <random>
#include <set>
#include <sstream>

#include "fs/result_file_support.h"
#include "hostile/cache_image.h"
#include "support/environment.h"
#include "support/fault_scale.h"
#include "support/scoped_locale.h"

namespace fscanner {
namespace {

constexpr const char* kLatin = "fs_LATIN.ISO-8859-1";
constexpr const char* kHan = "fs_HAN.GBK";

/// The locales of this test: "C", "C.UTF-8", and two that are made: one of single bytes,
/// and one whose characters may end in a byte of ASCII.
class NameLocales : public testing::TestWithParam<const char*> {
protected:
    static void SetUpTestSuite() {
        directory_ = std::make_unique<TemporaryDirectory>();
        for (const std::string& what : {"-i en_US -f ISO-8859-1 '" + *directory_ / kLatin,
                                        "-i zh_CN -f GBK '" + *directory_ / kHan})
            built_ = std::system(("localedef " + what + "' >/dev/null 2>&1").c_str());
    }
    static void TearDownTestSuite() { directory_.reset(); }

    NameLocales() {
        if (GetParam() == kLatin || GetParam() == kHan) path_.set(directory_->path());
        locale_ = std::make_unique<ScopedLocale>(GetParam());
    }
    void SetUp() override {
        if (!locale_->available()) GTEST_SKIP() << "no locale " << GetParam() << " here";
    }

    // Sorted. Fails if a name occurs twice or changes on its way.
    void expectFound(const FsQuery& query, std::vector<std::string> expected);

    EnvironmentVariable path_{"LOCPATH"};
    std::unique_ptr<ScopedLocale> locale_;
    CacheUser cache_;
    ResultDirectory results_;

private:
    inline static std::unique_ptr<TemporaryDirectory> directory_;
    inline static int built_ = -1;
};
INSTANTIATE_TEST_SUITE_P(Locales, NameLocales, testing::Values("C", "C.UTF-8", kLatin, kHan),
                         [](const auto& locale) {
                             std::string name = locale.param;
                             std::erase_if(name, [](char c) { return !std::isalnum(c); });
                             return name;
                         });

std::vector<std::string> throughARecordFile(const CollectingWriter& found, bool sorted) {
    FsResultSet_OnFile results;
    for (const FsFileInfo& record : found.records) results.getWriter()->addRecord(record);
    const std::unique_ptr<FsResultSetReader> reader(results.getReader());
    if (sorted) reader->sort(3, 2, true);
    std::vector<std::string> paths;
    reader->moveFirst();
    for (FsFileInfo record; reader->getNext(record);)
        paths.push_back(toMultibyte(std::wstring(record.getPath()) + record.getName()));
    std::sort(paths.begin(), paths.end());
    return paths;
}

void NameLocales::expectFound(const FsQuery& query, std::vector<std::string> expected) {
    std::sort(expected.begin(), expected.end());
    CollectingWriter direct, built, cached;
    EXPECT_EQ(fsScanQuery(direct, query, kMinute), 0);
    EXPECT_EQ(cache_.query(built, query, kAllOld), 0);
    EXPECT_EQ(cache_.query(cached, query), 0);
    EXPECT_TRUE(direct.sorted() == expected) << "by a scan";
    EXPECT_TRUE(built.sorted() == expected) << "from a new cache";
    EXPECT_TRUE(cached.sorted() == expected) << "from the cache";
    for (const bool sorted : {false, true})
        EXPECT_TRUE(throughARecordFile(direct, sorted) == expected) << "from a record file";
}

/// Bytes of several kinds: any, those that UTF-8 is made of, and those that patterns,
/// shells and the criteria language give a meaning.
std::string randomName(std::mt19937& random) {
    static const std::string_view special = "*?\"'\\`\n\t -[]:aA.";
    static const auto pieces = [] {
        std::istringstream all(
            "\xc3\xa4 \xe2\x82\xac \xf0\x9f\x98\x80 \xed\xb2\x80 \xf4\x90\x80\x80 \xc3 \xff "
            "\xc4\xb0 $( :: %n \x1b[ \xe4");
        return std::vector<std::string>(std::istream_iterator<std::string>(all), {});
    }();
    const std::size_t length = 1 + random() % (random() % 8 ? 40 : 255);
    const auto kind = random() % 4;
    std::string name;
    while (name.size() < length) {
        if (kind < 2 && random() % 2) {
            name += pieces[random() % pieces.size()];
        } else if (kind < 2) {
            name += special[random() % special.size()];
        } else {
            name += static_cast<char>(kind == 2 ? random() % 256 : 128 + random() % 128);
        }
    }
    name.resize(length);
    for (char& c : name)
        if (c == '/' || c == '\0') c = '_';
    return name == "." || name == ".." ? "dots" : name;
}

TEST_P(NameLocales, EachIsFoundOnceAndComesBackAsItsBytes) {
    std::mt19937 random(19);
    const TempTree tree(memoryDirectory());
    const int count = 10000;
    std::set<std::string> paths;
    std::string directory = tree.path();
    for (int i = 0; i < count; ++i) {
        if (i % 100 == 0) {
            // Directories with such names, too, at two levels.
            directory = (i % 200 ? directory : tree.path()) + "/" + randomName(random);
            std::filesystem::create_directory(directory);
        }
        const std::string path = directory + "/" + randomName(random);
        if (std::filesystem::exists(std::filesystem::symlink_status(path))) continue;
        writeWholeFile(path, "");
        paths.insert(path);
    }
    ASSERT_GT(paths.size(), 9000U);
    FsQuery query;
    query.addIncludePath((L"*:" + tree.wide()).c_str(), true);
    expectFound(query, {paths.begin(), paths.end()});

    // By its own name, through the index, where the language can write it.
    for (auto path = paths.begin(); path != paths.end(); ++path) {
        const std::size_t slash = path->rfind('/');
        const std::wstring name = toWide(path->substr(slash + 1));
        if (random() % 50 || name.find_first_of(L"\"*?") != name.npos) continue;
        query.setQuery((L"[FILENAME]==\"" + name + L"\"").c_str());
        CollectingWriter direct, cached;
        EXPECT_EQ(fsScanQuery(direct, query, kMinute), 0);
        EXPECT_EQ(cache_.query(cached, query), 0);
        EXPECT_THAT(cached.paths, testing::Contains(*path));
        EXPECT_EQ(cached.sorted(), direct.sorted()) << *path;
    }
}

TEST_P(NameLocales, BytesOfACharacterAreNoLettersOfTheirOwn) {
    const TempTree tree;
    for (const char* name : {"b", "cA", "\x81\x41"}) writeWholeFile(tree.path(name), "");
    FsQuery query;
    query.addIncludePath((L"*:" + tree.wide()).c_str(), true);
    const bool oneCharacter = GetParam() == kHan;
    query.setQuery(L"[FILENAME]!=\"*A\"");
    std::vector<std::string> others = {tree.path("b")};
    if (oneCharacter) others.push_back(tree.path("\x81\x41"));
    expectFound(query, others);
    query.setQuery(L"[FILENAME]==\"*A\"");
    std::vector<std::string> endInA = {tree.path("cA")};
    if (!oneCharacter) endInA.push_back(tree.path("\x81\x41"));
    expectFound(query, endInA);
}

}  // namespace
}  // namespace fscanner
