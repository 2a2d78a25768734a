// From a configuration to a provider and its answers: plug-ins are found, checked,
// loaded and asked.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <array>
#include <climits>
#include <memory>

#include "build_paths.h"
#include "fscanner/fs/fs.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_loader.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/plugin_library.h"
#include "support/child_process.h"
#include "support/environment.h"
#include "support/log_capture.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

class Plugins : public ::testing::Test {
protected:
    Plugins() {
        configure(directory_ / "home");
        // Plug-ins look for the library relative to their own place.
        std::filesystem::create_directory(directory_ / "lib");
        for (const char* place : {FSCANNER_SONAME, "lib/" FSCANNER_SONAME})
            std::filesystem::create_symlink(FSCANNER_LIBRARY, directory_ / place);
    }
    ~Plugins() override {
        FsFileInfo::setLargeFileSupport(false);
        FsFileInfo::setLongPathSupport(false);
    }
    void configure(const std::string& home, const std::string& more = "") {
        std::filesystem::create_directory(directory_ / "home");
        writeWholeFile(directory_ / "conf", "[fscanner]\nhome = " + home + "\n" + more);
        file_.set(directory_ / "conf");
    }
    void install(const std::string& from, const std::string& name) {
        std::filesystem::copy_file(from, directory_ / "home" / (name + ".so"));
        ::chmod((directory_ / "home" / (name + ".so")).c_str(), 0755);
    }
    void installTestProvider() {
        install(FSCANNER_TEST_PLUGINS "/test_provider.so", "test_provider");
    }
    std::string logOfLoading(const char* name) {
        const LogCapture log;
        EXPECT_EQ(load(name), nullptr);
        return log.text();
    }
    std::unique_ptr<FsProvider> load(const char* name) {
        return std::unique_ptr<FsProvider>(fsLoadProvider(name));
    }

    struct Directory : TemporaryDirectory {
        std::filesystem::path operator/(const std::string& name) const { return path() / name; }
    } directory_;
    EnvironmentVariable file_{"FSCANNER_CONFIG"};
    FsConfig_TAV config_;
};

TEST_F(Plugins, NameIsHomeSlashNameDotSo) {
    configure("/opt/x");
    for (const auto& [name, size, expected] : {std::tuple("p", 12u, "/opt/x/p.so"),
                                               {"p", 11u, "?"},
                                               {"", 20u, "?"},
                                               {nullptr, 20u, "?"}}) {
        std::array<char, 20> out{'?'};
        const int code = adjustDynamicLibraryName(out.data(), size, name, &config_);
        EXPECT_STREQ(out.data(), expected);
        EXPECT_EQ(code, *expected == '?' ? -1 : 0);
    }
}

TEST_F(Plugins, AreLoadedByNameOrByConfiguration) {
    installTestProvider();
    install(FSCANNER_PLUGINS "/provider_direct.so", "provider_cache");
    const auto named = load("test_provider");
    ASSERT_NE(named, nullptr);
    EXPECT_STREQ(named->name(), "test_provider");
    const auto byDefault = load(nullptr);
    ASSERT_NE(byDefault, nullptr) << "provider_cache is the default";
    EXPECT_STREQ(byDefault->name(), "provider_direct");
    EXPECT_FALSE(byDefault->setOption("no such", "option"));
    configure(directory_ / "home", "provider = test_provider\n");
    const auto configured = load(nullptr);
    ASSERT_NE(configured, nullptr);
    EXPECT_STREQ(configured->name(), "test_provider");
    const std::unique_ptr<FsMonitor> monitor(FsLoader::loadFsMonitor("test_provider", &config_));
    ASSERT_NE(monitor, nullptr);
    EXPECT_STREQ(monitor->name(), "test_monitor");
    EXPECT_EQ(FsLoader::loadFsMonitor("test_provider", nullptr), nullptr);
}

TEST_F(Plugins, LogTheRuleThatAFileBreaks) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    installTestProvider();
    const std::string home = directory_ / "home";
    const std::string file = home + "/test_provider.so";
    const auto reason = [&] { return logOfLoading("test_provider"); };
    const auto refusal = [&](const std::string& path, const std::string& why) {
        return HasSubstr("*** Error: cannot load DLL '" + path + "' (" + why + ")\n");
    };
    for (const auto& [path, mode] : {std::pair(file, 0775U), {file, 0757U}, {home, 01777U}}) {
        ::chmod(path.c_str(), mode);
        const std::string what = path == file ? "file" : "directory";
        EXPECT_THAT(reason(), refusal(file, "the " + what + " can be written by others"));
        ::chmod(path.c_str(), 0755);
        ASSERT_EQ(::chown(path.c_str(), 1234, 0), 0);
        EXPECT_THAT(reason(),
                    refusal(file, "the " + what + " belongs neither to root nor to the user"));
        ASSERT_EQ(::chown(path.c_str(), 0, 0), 0);
    }
    ASSERT_EQ(::chown(home.c_str(), 1234, 0), 0);

    // A link is judged by its target.
    std::filesystem::create_directory(directory_ / "links");
    std::filesystem::create_symlink(file, directory_ / "links/test_provider.so");
    configure(directory_ / "links");
    EXPECT_THAT(reason(), refusal((directory_ / "links/test_provider.so").string(),
                                  "the directory belongs neither to root nor to the user"));
    ASSERT_EQ(::chown(home.c_str(), 0, 0), 0);
    EXPECT_NE(load("test_provider"), nullptr);
}

TEST_F(Plugins, AreNotLoadedFromRelativePathsOrWithoutTheFactory) {
    installTestProvider();
    configure(".");
    EXPECT_THAT(logOfLoading("test_provider"),
                EndsWith("FsLoader::loadFsProvider - entering...\n"
                         "DLL prefix = ./\n"
                         "*** Error: cannot load DLL './test_provider.so' (the path is not "
                         "absolute)\n"
                         "FsLoader::loadFsProvider - exit\n"));
    configure(directory_ / "home");
    EXPECT_THAT(logOfLoading("absent"), HasSubstr("(the file: No such file or directory)"));
    writeWholeFile(directory_ / "home/text.so", "no library");
    EXPECT_THAT(logOfLoading("text"),
                HasSubstr("/text.so' (the file is no library, or not all of one"));
    for (const std::string& name : {std::string(2000, 'x'), std::string(), std::string("..")})
        EXPECT_EQ(load(name.c_str()), nullptr) << name;
    // The rules apply to its real place, whatever path leads there.
    EXPECT_NE(load("../home/test_provider"), nullptr);

    void* handle = this;
    EXPECT_NE(loadLibraryAndFactory("test_provider", &config_, createProviderSymbol, &handle),
              nullptr);
    EXPECT_NE(handle, nullptr);
    install(FSCANNER_PLUGINS "/provider_direct.so", "provider_direct");
    EXPECT_EQ(loadLibraryAndFactory("provider_direct", &config_, createMonitorSymbol, &handle),
              nullptr);
    EXPECT_EQ(handle, nullptr);
}

// The system's loader maps as much as the headers promise, and crashes where the file ends.
TEST_F(Plugins, ThatAreCutOrDamagedAreRefused) {
    installTestProvider();
    const std::string file = directory_ / "home/test_provider.so";
    const std::string whole = readWholeFile(file);
    const auto refused = [&](const std::string& bytes) {
        writeWholeFile(file, bytes);
        return inChild([&] { return load("test_provider") == nullptr ? 1 : 0; });
    };
    for (const std::size_t length :
         {std::size_t{0}, std::size_t{1}, std::size_t{63}, std::size_t{64}, std::size_t{119},
          std::size_t{4096}, whole.size() / 2, whole.size() * 15 / 16, whole.size() - 65})
        EXPECT_EQ(refused(whole.substr(0, length)), 1) << length;
    EXPECT_EQ(refused(std::string(65536, '\0')), 1);
    // The offset and the size in the file of the first segment's header.
    for (const std::size_t at : {72u, 96u}) {
        std::string damaged = whole;
        damaged.replace(at, 8, std::string(7, '\xff') + "\x7f");
        EXPECT_EQ(refused(damaged), 1) << at;
    }
    EXPECT_EQ(refused(whole), 0);
}

TEST_F(Plugins, CannotThrowIntoTheHost) {
    installTestProvider();
    for (const std::string mode : {"throw", "null"}) {
        configure(directory_ / "home", "[test]\nmode = " + mode + "\n");
        EXPECT_EQ(load("test_provider"), nullptr) << mode;
    }
    configure(directory_ / "home", "[test]\nmode = fail\n");
    const auto provider = load("test_provider");
    ASSERT_NE(provider, nullptr);
    FsQuery query;
    query.setQuery(L"q");
    const std::unique_ptr<FsResultSetReader> reader(fsExecuteQueryEx(provider.get(), query, 0, 0));
    ASSERT_NE(reader, nullptr);
    FsFileInfo record;
    EXPECT_TRUE(reader->getNext(record)) << "what was found before is kept";
}

TEST_F(Plugins, GetTheQueryAndTheLimitsInSecondsAndMilliseconds) {
    installTestProvider();
    const auto provider = load("test_provider");
    ASSERT_NE(provider, nullptr);
    FsQuery query;
    query.setQuery(L"the query");
    const auto expectRecord = [&](FsResultSetReader* made, const wchar_t* path, unsigned age,
                                  unsigned limit) {
        const std::unique_ptr<FsResultSetReader> reader(made);
        ASSERT_NE(reader, nullptr);
        reader->moveFirst();
        FsFileInfo record;
        ASSERT_TRUE(reader->getNext(record));
        EXPECT_STREQ(record.getPath(), path);
        EXPECT_STREQ(record.getName(), L"the query");
        EXPECT_EQ(record.getSize(), age);
        EXPECT_EQ(record.getAttr(), limit);
        EXPECT_FALSE(reader->getNext(record));
    };
    expectRecord(fsExecuteQuery(provider.get(), query, 2, 3), L"file", 120, 3000);
    for (const int wraps : {-1, INT_MAX})
        expectRecord(fsExecuteQueryEx(provider.get(), query, wraps, wraps), L"memory", 4294967236,
                     4294966296);
    EXPECT_EQ(fsExecuteQuery(nullptr, query, 1, 1), nullptr);
    EXPECT_EQ(fsExecuteQueryEx(nullptr, query, 1, 1), nullptr);
}

TEST_F(Plugins, LargeFilesAndLongPathsAreSupportedWhenConfigured) {
    for (const auto& [setting, large, deep] : {std::tuple("", false, false),
                                               {"large_files = 1\n", true, false},
                                               {"long_paths = 1\n", true, true}}) {
        configure(directory_ / "home", setting);
        load("absent");
        EXPECT_EQ(FsFileInfo::getLargeFileSupport(), large) << setting;
        EXPECT_EQ(FsFileInfo::getLongPathSupport(), deep) << setting;
    }
}

}  // namespace
}  // namespace fscanner
