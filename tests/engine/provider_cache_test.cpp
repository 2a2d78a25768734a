#include <gmock/gmock.h>
#include <sys/stat.h>

#include <map>

#include "engine/temp_tree.h"
#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_directory.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_resultset_vector.h"
#include "support/child_process.h"
#include "support/environment.h"

namespace fscanner {
namespace {

class ProviderCache : public testing::Test {
protected:
    ProviderCache() : provider(createProvider(nullptr)) {
        tree.file("a.h", 7);
        tree.file("d/b.h");
        query.addIncludePath((L"*:" + tree.wide()).c_str(), true);
        provider->setOption(FS_OPTION_CACHE_DIRECTORY, cache.c_str());
    }
    std::vector<std::string> found(unsigned age = 3600) {
        CollectingWriter writer;
        EXPECT_EQ(provider->executeQuery(writer, query, age, kMinute), 0);
        EXPECT_EQ(provider->lastStatus(), 0);
        return writer.sorted();
    }

    TempTree tree;
    TempTree place;
    std::string cache = place.path("made/cache");
    std::unique_ptr<FsProvider> provider;
    FsQuery query;
};

TEST_F(ProviderCache, ADamagedCacheIsMadeAnewWithinTheQuery) {
    const auto right = found();
    for (const auto& entry : std::filesystem::directory_iterator(cache))
        if (entry.path().extension() == ".pxx" && entry.file_size() > 0)
            writeWholeFile(entry.path(), std::string(entry.file_size(), '\xfe'));
    EXPECT_EQ(found(), right);
}

TEST_F(ProviderCache, Options) {
    EXPECT_STREQ(provider->name(), "provider_cache");
    EXPECT_FALSE(provider->setOption("colour", "red"));
    EXPECT_FALSE(provider->setOption(FS_OPTION_COMPRESSED, "maybe"));
    EXPECT_TRUE(provider->setOption(FS_OPTION_FRESH, "true"));
    EXPECT_TRUE(provider->setOption(FS_OPTION_FRESH, "0"));
    EXPECT_FALSE(provider->setOption(FS_OPTION_CACHE_DIRECTORY, "relative"));
    EXPECT_FALSE(provider->setOption(nullptr, "x"));
    for (const char* size : {"", "M", "-1", "1X", "1MB", " 1", "16777216T", "99999999999999999999"})
        EXPECT_FALSE(provider->setOption(FS_OPTION_CACHE_LIMIT, size)) << size;
    FsCacheSettings settings;
    for (const auto& [text, size] :
         {std::pair{"0", 0ULL}, {"3k", 3072ULL}, {"16777215T", 16777215ULL << 40}}) {
        EXPECT_TRUE(settings.set(FS_OPTION_CACHE_LIMIT, text));
        EXPECT_EQ(settings.limit, size) << text;
    }
    const auto right = found();
    // The other encoding has tables of its own.
    EXPECT_TRUE(provider->setOption(FS_OPTION_COMPRESSED, "true"));
    tree.file("new.h");
    EXPECT_EQ(found().size(), right.size() + 1);
    EXPECT_TRUE(provider->setOption(FS_OPTION_COMPRESSED, "false"));
    EXPECT_EQ(found(), right);
    EXPECT_TRUE(provider->setOption(FS_OPTION_MONITORED, "true"));
    EXPECT_EQ(found(kAllOld), right);
}

// Whatever the limit, a search builds the trees that it needs once, and they answer it.
TEST_F(ProviderCache, ALimitCostsWhatIsNotSearched) {
    EXPECT_TRUE(provider->setOption(FS_OPTION_CACHE_LIMIT, "1"));
    const auto right = found();
    tree.file("new.h");
    EXPECT_EQ(found(), right);
    const TempTree other;
    other.file("o");
    query.clearIncludePaths();
    query.addIncludePath((L"*:" + other.wide()).c_str(), true);
    EXPECT_EQ(found(), std::vector{other.path("o")});
    // Nor do the trees that it builds push out others that answer it.
    query.addIncludePath((L"*:" + tree.wide()).c_str(), true);
    other.file("later");
    EXPECT_EQ(found().size(), right.size() + 2);
    EXPECT_EQ(found().size(), right.size() + 2);
}

TEST_F(ProviderCache, HostsThatSeeLargeFilesAndOthersShareNoTables) {
    std::filesystem::resize_file(tree.path("a.h"), 3ULL << 30);
    query.setQuery(L"[SIZE]>2147483647");
    EXPECT_TRUE(found().empty());
    FsFileInfo::setLargeFileSupport(true);
    EXPECT_EQ(found(), std::vector{tree.path("a.h")});
    FsFileInfo::setLargeFileSupport(false);
    EXPECT_TRUE(found().empty());
}

TEST_F(ProviderCache, ADirectoryThatOthersMayWriteIsRefused) {
    found();
    ASSERT_EQ(chmod(cache.c_str(), 0777), 0);
    CollectingWriter writer;
    EXPECT_EQ(provider->executeQuery(writer, query, 3600, kMinute), FS_CACHE_FAILURE);
    EXPECT_EQ(provider->lastStatus(), FS_CACHE_FAILURE);
    EXPECT_TRUE(writer.paths.empty());
}

/// All files with their contents, by name.
std::map<std::string, std::string> contentOf(const std::string& directory) {
    std::map<std::string, std::string> content;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        content[entry.path()] = entry.is_regular_file() ? readWholeFile(entry.path()) : "";
    return content;
}

TEST(CacheDirectory, DefaultFollowsTheEnvironment) {
    EnvironmentVariable cacheHome("XDG_CACHE_HOME"), home("HOME");
    home.set("/h");
    cacheHome.set("/c");
    EXPECT_THAT(toMultibyte(fsDefaultCacheDirectory()), testing::StartsWith("/c/fscanner/__"));
    // A relative path counts as unset.
    cacheHome.set("c");
    EXPECT_THAT(toMultibyte(fsDefaultCacheDirectory()),
                testing::StartsWith("/h/.cache/fscanner/__"));
}

// Files that root makes in a user's home could not be used by the user.
TEST(CacheDirectory, OfRootIsNotInAnothersHome) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give directories away";
    const TempTree tree;
    tree.directory("home");
    EnvironmentVariable cacheHome("XDG_CACHE_HOME"), home("HOME");
    home.set(tree.path("home").c_str());
    tree.directory("home/roots");
    for (const std::string chosen : {"", "home/cache/of/his", "home/roots"}) {
        cacheHome.set(chosen.empty() ? "" : tree.path(chosen).c_str());
        const auto isThere = testing::StartsWith(tree.path("home"));
        ASSERT_EQ(::chown(tree.path("home").c_str(), 0, 0), 0);
        EXPECT_THAT(toMultibyte(fsDefaultCacheDirectory()), isThere);
        ASSERT_EQ(::chown(tree.path("home").c_str(), kNobody, kNobody), 0);
        EXPECT_THAT(toMultibyte(fsDefaultCacheDirectory()), testing::Not(isThere));
    }
}

// A directory that holds anything else is not a cache, and backups must not leave it out.
TEST(CacheDirectory, HoldsNothingElse) {
    const std::string standard = "Signature: 8a477f597d28d172789f06886806bc55\n";
    const std::string own = standard + "# This directory holds a cache of fscanner and may be";
    const struct {
        std::map<std::string, std::string> files;  // a name that ends with "/" is a directory
        const char* problem;                       // null: none
    } table[] = {
        {{}, nullptr},
        {{{"lost+found/", ""}}, nullptr},
        {{{"fscanner.lock", ""}, {"directories.x.dat", ""}, {"files.x_idx.dat", ""}}, nullptr},
        {{{"CACHEDIR.TAG", own}, {"mine", ""}}, nullptr},
        {{{"CACHEDIR.TAG", ""}}, nullptr},
        {{{"CACHEDIR.TAG", standard}}, nullptr},
        {{{"mine", ""}}, "other things, such as mine"},
        {{{".hidden/", ""}}, "other things, such as .hidden"},
        {{{"files.x.dat", ""}, {"mine", ""}}, "other things, such as mine"},
        {{{"CACHEDIR.TAG", ""}, {"mine", ""}}, "other things, such as mine"},
        {{{"CACHEDIR.TAG", standard + "# of a browser\n"}}, "CACHEDIR.TAG of another program"},
        {{{"CACHEDIR.TAG/", ""}}, "CACHEDIR.TAG of another program"},
    };
    for (const auto& [files, expected] : table) {
        const TempTree tree;
        for (const auto& [name, content] : files) {
            if (name.ends_with('/')) tree.directory(name);
            if (!name.ends_with('/')) writeWholeFile(tree.path(name), content);
        }
        SCOPED_TRACE(files.empty() ? "empty" : files.begin()->first + files.begin()->second);
        const auto before = contentOf(tree.path());
        for (const bool make : {false, true}) {
            std::wstring problem;
            const bool good = make ? fsPrepareCacheDirectory(tree.wide().c_str(), problem)
                                   : fsCheckCacheDirectory(tree.wide().c_str(), problem);
            EXPECT_EQ(good, expected == nullptr) << toMultibyte(problem);
            EXPECT_THAT(toMultibyte(problem), testing::EndsWith(expected ? expected : ""));
            if (make && good) continue;
            EXPECT_EQ(contentOf(tree.path()), before);
        }
        const bool tagged = contentOf(tree.path())[tree.path("CACHEDIR.TAG")].starts_with(own);
        EXPECT_EQ(tagged, expected == nullptr);
    }
}

}  // namespace
}  // namespace fscanner
