#include "fscanner/common/paths.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "fscanner/common/heap_string.h"
#include "fscanner/common/utf8.h"
#include "fscanner/fs/debug.h"
#include "support/current_directory.h"
#include "support/scoped_locale.h"
#include "support/temporary_directory.h"

using namespace fscanner;
namespace fs = std::filesystem;

namespace {

TEST(Paths, Join) {
    const struct {
        const wchar_t *dir, *name, *joined;
    } cases[] = {
        {L"/a/", L"b", L"/a/b"}, {L"/a", L"b", L"/a/b"}, {L"", L"b", L"/b"},
        {L"/", L"b", L"/b"},     {L"/a", L"", L"/a/"},
    };
    for (const auto& c : cases)
        EXPECT_STREQ(HeapText(getFullPathName(c.dir, c.name)).get(), c.joined) << c.dir;
    EXPECT_EQ(getFullPathName(nullptr, L"b"), nullptr);
    EXPECT_EQ(getFullPathName(L"/a", nullptr), nullptr);
}

TEST(Paths, SplitAtTheLastSeparator) {
    const struct {
        const wchar_t *path, *dir, *name;
    } cases[] = {{L"/a/b", L"/a/", L"b"}, {L"/b", L"/", L"b"}, {L"a/", L"a/", L""}};
    for (const auto& c : cases) {
        wchar_t* dir = nullptr;
        wchar_t* name = nullptr;
        ASSERT_TRUE(fullPath2Component(c.path, L'/', &dir, &name));
        EXPECT_STREQ(HeapText(dir).get(), c.dir);
        EXPECT_STREQ(HeapText(name).get(), c.name);
    }
    wchar_t* untouched = nullptr;
    EXPECT_FALSE(fullPath2Component(L"name", L'/', &untouched, &untouched));
    EXPECT_FALSE(fullPath2Component(L"", L'/', &untouched, &untouched));
    EXPECT_EQ(untouched, nullptr);
}

TEST(Paths, RemoveAndRenameNamesOfAnyBytes) {
    const ScopedLocale locale("C");
    const TemporaryDirectory directory;
    const std::string odd = directory / "\xC3\xA9\xFF";
    std::ofstream(odd).close();
    const std::wstring renamed = toWide(directory / "plain");
    EXPECT_EQ(renameFile(toWide(odd).c_str(), renamed.c_str()), 0);
    EXPECT_FALSE(fs::exists(odd));
    EXPECT_TRUE(fs::exists(directory / "plain"));
    EXPECT_EQ(removeFile(renamed.c_str()), 0);
    EXPECT_TRUE(fs::is_empty(directory.path()));
    EXPECT_NE(removeFile(renamed.c_str()), 0);
    EXPECT_NE(renameFile(renamed.c_str(), renamed.c_str()), 0);
}

TEST(TemporaryFiles, TakeTheFirstFreeName) {
    const TemporaryDirectory directory;
    const CurrentDirectory current(directory.path());
    std::ofstream("tav_0").close();
    const std::unique_ptr<char[]> second(getTempFile_Default(nullptr));
    EXPECT_STREQ(second.get(), "./tav_1");
    EXPECT_TRUE(fs::exists("tav_1"));
    const std::unique_ptr<char[]> prefixed(getTempFile_Default("odd%s_"));
    EXPECT_STREQ(prefixed.get(), "./odd%s_0");
    struct stat status;
    ASSERT_EQ(stat(prefixed.get(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(status.st_size, 0);
}

TEST(TemporaryFiles, NeverTouchWhatIsThere) {
    const TemporaryDirectory directory;
    const CurrentDirectory current(directory.path());
    std::ofstream("x0") << "kept";
    fs::permissions("x0", fs::perms::none);
    fs::create_symlink("target", "x1");  // dangling
    fs::create_directory("x2");
    const std::unique_ptr<char[]> name(getTempFile_Default("x"));
    EXPECT_STREQ(name.get(), "./x3");
    EXPECT_EQ(fs::file_size("x0"), 4u);
    EXPECT_FALSE(fs::exists("target"));
}

class UserCacheDirectory : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(startDebug(log_.c_str())); }
    void TearDown() override { stopDebug(); }

    TemporaryDirectory directory_;
    std::string log_ = directory_ / "log";
    std::string base_ = directory_.path().string();
    std::wstring wideBase_ = toWide(base_);
};

TEST_F(UserCacheDirectory, IsMadeForItsUserAlone) {
    const HeapText path(getUserCacheDir(wideBase_.c_str(), L"ann", true));
    EXPECT_EQ(path.get(), wideBase_ + L"/__ann");
    struct stat status;
    ASSERT_EQ(stat((base_ + "/__ann").c_str(), &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777, 0700u);
    EXPECT_EQ(readWholeFile(log_),
              "::common - user name is 'ann'\n::common - full cache path name is '" + base_ +
                  "/__ann'\n");
    const HeapText again(getUserCacheDir((wideBase_ + L"/").c_str(), L"ann", true));
    EXPECT_EQ(again.get(), wideBase_ + L"/__ann");  // it may exist already
    const HeapText other(getUserCacheDir(wideBase_.c_str(), L"bob", false));
    EXPECT_EQ(other.get(), wideBase_ + L"/__bob");
    EXPECT_FALSE(fs::exists(base_ + "/__bob"));
}

TEST_F(UserCacheDirectory, BelongsToTheLoginName) {
    const passwd* entry = getpwuid(geteuid());
    if (entry == nullptr) GTEST_SKIP() << "the user has no name";
    const HeapText path(getUserCacheDir(wideBase_.c_str(), false));
    EXPECT_EQ(path.get(), wideBase_ + L"/__" + toWide(entry->pw_name));
}

TEST_F(UserCacheDirectory, WantsANameThatStaysInside) {
    for (const wchar_t* user : {L"", L"/", L"../ann", L"a/b"}) {
        startDebug(log_.c_str());
        EXPECT_EQ(getUserCacheDir(wideBase_.c_str(), user, true), nullptr) << user;
        EXPECT_EQ(readWholeFile(log_), "::common - unable to determine the current user name.\n");
    }
    EXPECT_EQ(getUserCacheDir(nullptr, L"ann", true), nullptr);
    EXPECT_EQ(std::distance(fs::directory_iterator(base_), {}), 1);  // the log
}

TEST_F(UserCacheDirectory, SaysWhyItCannotBeMade) {
    const std::wstring missing = wideBase_ + L"/missing";
    EXPECT_EQ(getUserCacheDir(missing.c_str(), L"ann", true), nullptr);
    const std::string last =
        "::common - CreateDirectory(...) failed [rc = " + std::to_string(ENOENT) + "]!\n";
    EXPECT_TRUE(readWholeFile(log_).ends_with(last)) << readWholeFile(log_);
}

}  // namespace
