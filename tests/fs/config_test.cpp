// Settings: the file's syntax, the places where it is looked for, and numbers.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>

#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/tav_cfg.h"
#include "support/environment.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

TEST(ConfigText, GivesKeysBySection) {
    const char* text =
        "# a comment\n"
        "\n"
        "[fscanner]\r\n"
        "  home =  /opt/a b#c  \r\n"
        "empty =\n"
        "\ttwice = 1\n"
        "[ other ]\n"
        "home = a=b\n"
        "[fscanner]\n"
        "twice = 2\n"
        "[s]\na = $ORIGIN\nb = $ORIGIN/x\nc = $ORIGINAL\nd = x$ORIGIN\ne = $";
    const ConfigSettings settings = parseConfig(text, "/d/file");
    const std::map<std::string, std::string, std::less<>> expected = {
        {"fscanner.home", "/opt/a b#c"},
        {"fscanner.empty", ""},
        {"fscanner.twice", "2"},
        {"other.home", "a=b"},
        {"s.a", "/d"},
        {"s.b", "/d/x"},
        {"s.c", "$ORIGINAL"},
        {"s.d", "x$ORIGIN"},
        {"s.e", "$"}};
    EXPECT_EQ(settings.values, expected);
    EXPECT_EQ(settings.error, "");
}

TEST(ConfigText, NamesTheFirstMalformedLineAndKeepsTheOthers) {
    using namespace std::string_literals;
    const std::pair<std::string, const char*> cases[] = {
        {"[s]\nk = v\nk = v\0w\n"s, "/d/file:3: a zero byte"},
        {"[s]\nk = v\nnonsense\n", "/d/file:3: neither \"key = value\" nor \"[section]\""},
        {"[s]\n= v\nk = v", "/d/file:2: a value has no key"},
        {"k = v\n[s]\nk = v", "/d/file:1: a key stands before any section"},
        {"[s]\nk = v\n[t\nk = w", "/d/file:3: a section has no \"]\" at its end"},
        {"[s]\nk = v\n\n[ ]\n", "/d/file:4: a section has no name"},
    };
    for (const auto& [text, error] : cases) {
        const ConfigSettings settings = parseConfig(text, "/d/file");
        EXPECT_EQ(settings.error, error);
        EXPECT_EQ(settings.values.count("s.k"), 1u) << text;
        EXPECT_EQ(settings.values.size(), 1u) << text;
    }
}

class Config : public ::testing::Test {
protected:
    Config() {
        configPlaces() = {directory_ / "etc.conf", directory_ / "vendor.conf"};
        std::filesystem::create_directories(directory_ / "xdg/fscanner");
        std::filesystem::create_directories(directory_ / "home/.config/fscanner");
    }
    ~Config() override { configPlaces() = saved_; }
    std::string who() const { return config_.getString("s", "who", "nobody"); }

    TemporaryDirectory directory_;
    ConfigPlaces saved_ = configPlaces();
    FsConfig_TAV config_;
    EnvironmentVariable file_{"FSCANNER_CONFIG"};
    EnvironmentVariable xdg_{"XDG_CONFIG_HOME"};
    EnvironmentVariable home_{"HOME"};
};

TEST_F(Config, ReadsTheFirstFileAndTheInstalledOneForTheRest) {
    EXPECT_EQ(who(), "nobody");
    EXPECT_EQ(config_.getString("s", "who", nullptr), "");
    writeWholeFile(directory_ / "vendor.conf", "[s]\nwho = vendor\nfrom = vendor\n");
    EXPECT_EQ(who(), "vendor");
    writeWholeFile(directory_ / "etc.conf", "[s]\nwho = etc\n[t]\nonly = etc\n");
    EXPECT_EQ(who(), "etc");
    home_.set(directory_ / "home");
    EXPECT_EQ(who(), "etc") << "there is no personal file";
    writeWholeFile(directory_ / "home/.config/fscanner/fscanner.conf", "[s]\nwho = home\n");
    EXPECT_EQ(who(), "home");
    EXPECT_EQ(config_.getString("t", "only", ""), "") << "one user's file counts";
    xdg_.set("relative");
    EXPECT_EQ(who(), "home");
    xdg_.set(directory_ / "xdg");
    EXPECT_EQ(who(), "etc");
    writeWholeFile(directory_ / "xdg/fscanner/fscanner.conf", "[s]\nwho = xdg\nempty =\n");
    EXPECT_EQ(who(), "xdg");
    EXPECT_EQ(config_.getString("s", "from", "nobody"), "vendor");
    EXPECT_EQ(config_.getString("s", "empty", "default"), "default");
    EXPECT_EQ(config_.getString(nullptr, "who", "default"), "default") << "and where it fails";
    EXPECT_EQ(FsSettings().getString(nullptr, "who", "default"), "default");
    file_.set(directory_ / "own.conf");
    writeWholeFile(directory_ / "own.conf", "[s]\nwho = own\n");
    EXPECT_EQ(who(), "own");
    EXPECT_EQ(config_.getError(), 0);
}

TEST_F(Config, SaysWhatIsWrong) {
    writeWholeFile(directory_ / "vendor.conf", "[s]\nwho = vendor\n");
    const std::string own = directory_ / "own.conf";
    file_.set(own);
    ASSERT_EQ(::mkfifo(own.c_str(), 0600), 0);
    EXPECT_EQ(who(), "vendor") << "without waiting for a writer";
    EXPECT_EQ(config_.getError(), TavCfg::UNREADABLE);
    EXPECT_EQ(config_.getErrorText(), own + ": cannot be read");
    std::filesystem::remove(own);
    writeWholeFile(own, "[s]\nwho = own\noops\n");
    EXPECT_EQ(who(), "own");
    EXPECT_EQ(config_.getError(), TavCfg::MALFORMED);
    EXPECT_EQ(config_.getErrorText(), own + ":3: neither \"key = value\" nor \"[section]\"");
    writeWholeFile(own, "[s]\nwho = own\n");
    EXPECT_EQ(who(), "own");
    EXPECT_EQ(config_.getErrorText(), "") << "a file that was mended counts at once";
}

TEST_F(Config, SettingsAreThoseOfOneMoment) {
    const std::string own = directory_ / "own.conf";
    file_.set(own);
    writeWholeFile(directory_ / "vendor.conf", "[s]\nwho = vendor\nfrom = vendor\n");
    writeWholeFile(own, "[s]\nwho = own\nn = 2k\noops\n");
    const FsSettings settings;
    std::filesystem::remove(own);
    EXPECT_EQ(settings.getString("s", "who", ""), "own");
    EXPECT_EQ(settings.getString("s", "from", ""), "vendor");
    EXPECT_EQ(settings.getString("s", "absent", nullptr), "");
    EXPECT_EQ(settings.getInteger("s", "n", 0), 2048);
    EXPECT_EQ(settings.getError(), TavCfg::MALFORMED);
    EXPECT_EQ(settings.getErrorText(), own + ":4: neither \"key = value\" nor \"[section]\"");
    EXPECT_EQ(FsSettings().getErrorText(), own + ": cannot be read");
}

TEST_F(Config, NumbersHaveSignsAndOneSuffix) {
    constexpr int whenAbsent = -77;
    file_.set(directory_ / "own.conf");
    const auto number = [&](const char* text) {
        writeWholeFile(directory_ / "own.conf", std::string("[s]\nn = ") + text + "\n");
        return config_.getInteger("s", "n", whenAbsent);
    };
    // They wrap at 32 bits.
    const std::pair<const char*, int> cases[] = {
        {"12k", 12288}, {"3M", 3145728},    {"-2K", -2048},
        {"-+-+5", 5},   {"007", 7},         {"99999999999999999999k", 1073740800},
        {"4096M", 0},   {"2048M", INT_MIN}, {"-2147483648", INT_MIN},
    };
    for (const auto& [text, value] : cases) EXPECT_EQ(number(text), value) << text;
    for (const char* text : {"7x", "k", "-", "5 k", "5kk", "- 5", "0x10"})
        EXPECT_EQ(number(text), whenAbsent) << text;
    EXPECT_EQ(config_.getInteger("s", "absent", whenAbsent), whenAbsent);
}

}  // namespace
}  // namespace fscanner
