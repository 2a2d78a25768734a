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
#include "support/current_directory.h"
#include "support/log_capture.h"
#include "support/scoped_locale.h"
#include "support/temporary_directory.h"

using namespace fscanner;
namespace fs = std::filesystem;

namespace {

TEST(Paths, Join) {
    const wchar_t* const cases[][3] = {{L"/a/", L"b", L"/a/b"},  {L"/a", L"b", L"/a/b"},
                                       {L"", L"b", L"/b"},       {L"/a", L"", L"/a/"},
                                       {nullptr, L"b", nullptr}, {L"/a", nullptr, nullptr}};
    for (const auto& [dir, name, joined] : cases)
        EXPECT_STREQ(HeapText(getFullPathName(dir, name)).get(), joined);
}

TEST(Paths, SplitAtTheLastSeparator) {
    const wchar_t* const cases[][3] = {
        {L"/a/b", L"/a/", L"b"}, {L"/b", L"/", L"b"}, {L"a/", L"a/", L""}};
    for (const auto& [path, directory, last] : cases) {
        wchar_t *dir = nullptr, *name = nullptr;
        ASSERT_TRUE(fullPath2Component(path, L'/', &dir, &name));
        EXPECT_STREQ(HeapText(dir).get(), directory);
        EXPECT_STREQ(HeapText(name).get(), last);
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

TEST(TemporaryFiles, TakeTheFirstFreeNameAndTouchNothing) {
    const TemporaryDirectory directory;
    const CurrentDirectory current(directory.path());
    std::ofstream("tav_0") << "kept";
    fs::permissions("tav_0", fs::perms::none);
    fs::create_symlink("target", "tav_1");  // dangling
    fs::create_directory("tav_2");
    const std::unique_ptr<char[]> fourth(getTempFile_Default(nullptr));
    EXPECT_STREQ(fourth.get(), "./tav_3");
    EXPECT_TRUE(fs::exists("tav_3"));
    EXPECT_EQ(fs::file_size("tav_0"), 4u);
    EXPECT_FALSE(fs::exists("target"));
    const std::unique_ptr<char[]> prefixed(getTempFile_Default("odd%s_"));
    EXPECT_STREQ(prefixed.get(), "./odd%s_0");
    struct stat status;
    ASSERT_EQ(stat(prefixed.get(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(status.st_size, 0);
}

class UserCacheDirectory : public testing::Test {
protected:
    LogCapture log_;
    TemporaryDirectory directory_;
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
    EXPECT_EQ(log_.text(), "::common - user name is 'ann'\n::common - full cache path name is '" +
                               base_ + "/__ann'\n");
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
    std::string told;
    for (const wchar_t* user : {L"", L"/", L"../ann", L"a/b"}) {
        EXPECT_EQ(getUserCacheDir(wideBase_.c_str(), user, true), nullptr) << user;
        EXPECT_EQ(log_.text(), told += "::common - unable to determine the current user name.\n");
    }
    EXPECT_EQ(getUserCacheDir(nullptr, L"ann", true), nullptr);
    EXPECT_TRUE(fs::is_empty(base_));
}

TEST_F(UserCacheDirectory, SaysWhyItCannotBeMade) {
    const std::wstring missing = wideBase_ + L"/missing";
    EXPECT_EQ(getUserCacheDir(missing.c_str(), L"ann", true), nullptr);
    EXPECT_TRUE(log_.text().ends_with(
        "::common - CreateDirectory(...) failed [rc = " + std::to_string(ENOENT) + "]!\n"));
}

}  // namespace
