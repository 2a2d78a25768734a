// The configuration file of fscan: each key, and the messages about a file or a
// value that cannot be used.

#include "build_paths.h"
#include "program_run.h"
#include "support/nest.h"

namespace fscan::test {
namespace {

using testing::HasSubstr;

class SettingsTest : public FscanTest {
protected:
    SettingsTest() {
        add("d/a", "1");
        add("d/sub/b", "22");
        std::filesystem::create_directory(tree_ / "home");
    }

    void configure(const std::string& text) const { add("conf", text); }
    /// Makes a copy of this file the plug-in of that name.
    void install(const std::string& file, const std::string& name) const {
        const std::string copy = tree_ / ("home/" + name + ".so");
        std::filesystem::copy_file(file, copy);
        chmod(copy.c_str(), 0755);
    }
    RunResult run(const Arguments& arguments) const {
        return FscanTest::run(arguments, {.environment = {{"FSCANNER_CONFIG", tree_ / "conf"},
                                                          {"XDG_CACHE_HOME", tree_ / "cache"}},
                                          .cached = true});
    }
    std::string status() const { return run({"--cache-status"}).out; }
    bool hasCache(const std::string& directory) const {
        return std::filesystem::exists(tree_ / (directory + "/CACHEDIR.TAG"));
    }

    const std::string all_ = "d/a\nd/sub/b\n";
};

TEST_F(SettingsTest, TheCacheLiesWhereAndAsTheySay) {
    configure("[provider_cache]\ncache_directory = " + (tree_ / "mine") + "\ncompressed = true\n");
    EXPECT_EQ(run({"d/", "--sort", "path"}).out, all_);
    EXPECT_TRUE(hasCache("mine"));
    EXPECT_THAT(status(), HasSubstr("directory:  " + (tree_ / "mine") + "\n"));
    EXPECT_THAT(status(), HasSubstr("state:      good\nrecords:    "));
    EXPECT_THAT(run({"d/", "--explain"}).out, HasSubstr("answer:    from the cache, "));
    bool compressed = false;
    for (const auto& entry : std::filesystem::directory_iterator(tree_ / "mine"))
        compressed |= entry.path().native().find(".compressed") != std::string::npos;
    EXPECT_TRUE(compressed);

    EXPECT_EQ(run({"d/", "--sort", "path", "--cache-dir", "other"}).out, all_);
    EXPECT_TRUE(hasCache("other")) << "the command line wins";
}

TEST_F(SettingsTest, AMonitoredCacheAnswersAtAnyAge) {
    configure("");
    EXPECT_EQ(run({"d/", "--sort", "path"}).out, all_);
    add("d/later");
    configure("[provider_cache]\nmonitored = true\n");
    sleep(2);
    EXPECT_THAT(run({"d/", "--explain", "--max-age", "1s"}).out, HasSubstr("from the cache, "));
    EXPECT_EQ(run({"d/", "--sort", "path", "--max-age", "1s"}).out, all_);
    EXPECT_EQ(run({"d/", "--sort", "path", "--fresh"}).out, "d/a\nd/later\nd/sub/b\n");
}

TEST_F(SettingsTest, AProviderAnswersThatTheyName) {
    configure("[fscanner]\nprovider = provider_direct\n");
    EXPECT_EQ(run({"d/", "--sort", "path"}).out, all_);
    EXPECT_FALSE(std::filesystem::exists(tree_ / "cache"));

    install(FSCANNER_TEST_PLUGINS "/test_provider.so", "test_provider");
    configure("[fscanner]\nhome = " + (tree_ / "home") + "\nprovider = test_provider\n");
    for (const Arguments& arguments :
         {Arguments{"d/"}, {"d/", "--strict"}, {"d/", "--no-recurse"}}) {
        const RunResult foreign = run(arguments);
        EXPECT_EQ(foreign.status, 4);
        EXPECT_EQ(foreign.err, "fscan: d/: the provider test_provider failed (-40)\n");
    }
    EXPECT_EQ(run({"d/", "--no-cache"}).err,
              "fscan: the provider provider_direct cannot be loaded; --debug-log tells why\n")
        << "it is not in that home";
    install(FSCANNER_PLUGINS "/provider_direct.so", "provider_direct");
    EXPECT_EQ(run({"d/", "--no-cache", "--sort", "path"}).out, all_);
}

TEST_F(SettingsTest, LargeFilesAndLongPathsAreFoundWhateverTheySay) {
    add("d/large");
    std::filesystem::resize_file(tree_ / "d/large", 3ULL << 30);
    fscanner::Nest nest(tree_ / "d/sub");
    for (int level = 0; level < 10; ++level) nest.down(std::string(200, 'l'));
    nest.file("deep");
    configure("[fscanner]\nlarge_files = 0\nlong_paths = 0\n");
    for (const char* way : {"--fresh", "--no-cache"}) {
        EXPECT_EQ(run({"d/", way, "--format", "{size} {name}", "--larger", "2G"}).out,
                  "3221225472 large\n")
            << way;
        EXPECT_EQ(run({"d/", way, "-c", "-n", "deep"}).out, "1\n") << way;
    }
}

TEST_F(SettingsTest, WhatCannotBeUsedIsSaidOnceAndTheRestCounts) {
    const std::string file = tree_ / "conf";
    const std::pair<std::string, std::string> cases[] = {
        {"nonsense\n[provider_cache]\ncache_directory = " + (tree_ / "mine") + "\n",
         file + ":1: neither \"key = value\" nor \"[section]\""},
        {"[provider_cache]\ncompressed = maybe\ncache_directory = " + (tree_ / "mine") + "\n",
         "the setting compressed: maybe is neither true nor false"},
        {"[provider_cache]\nmonitored = maybe\ncache_directory = mine\n",
         "the setting cache_directory: mine is no absolute path"},
    };
    for (const auto& [text, message] : cases) {
        configure(text);
        const RunResult search = run({"d/", "--sort", "path"});
        EXPECT_EQ(search.out, all_);
        EXPECT_EQ(search.err, "fscan: " + message + "\n");
        EXPECT_EQ(search.status, 0);
        EXPECT_EQ(run({"--cache-status"}).err, search.err);
        EXPECT_TRUE(hasCache("mine"));
    }
    std::filesystem::remove(file);
    EXPECT_EQ(run({"d/"}).err, "fscan: " + file + ": cannot be read\n");
}

}  // namespace
}  // namespace fscan::test
