#include "fscanner/platform/paths.h"

#include <gtest/gtest.h>

#include "fscanner/common/strings.h"
#include "fscanner/common/utf8.h"
#include "support/scoped_locale.h"
#include "support/temporary_directory.h"

using namespace fscanner;
namespace fs = std::filesystem;

namespace {

TEST(Paths, JoinAndSplitAtTheLastSeparator) {
    const wchar_t* const joins[][3] = {{L"/a/", L"b", L"/a/b"},  {L"/a", L"b", L"/a/b"},
                                       {L"", L"b", L"/b"},       {L"/a", L"", L"/a/"},
                                       {nullptr, L"b", nullptr}, {L"/a", nullptr, nullptr}};
    for (const auto& [dir, name, joined] : joins)
        EXPECT_STREQ(HeapText(getFullPathName(dir, name)).get(), joined);
    const wchar_t* const splits[][3] = {
        {L"/a/b", L"/a/", L"b"}, {L"/b", L"/", L"b"}, {L"a/", L"a/", L""}};
    for (const auto& [path, directory, last] : splits) {
        wchar_t *dir = nullptr, *name = nullptr;
        ASSERT_TRUE(fullPath2Component(path, L'/', &dir, &name));
        EXPECT_STREQ(HeapText(dir).get(), directory);
        EXPECT_STREQ(HeapText(name).get(), last);
    }
    wchar_t* untouched = nullptr;
    for (const wchar_t* text : {L"name", L""})
        EXPECT_FALSE(fullPath2Component(text, L'/', &untouched, &untouched));
    EXPECT_EQ(untouched, nullptr);
}

TEST(Paths, RemoveAndRenameNamesOfAnyBytes) {
    const ScopedLocale locale("C");
    const TemporaryDirectory directory;
    const std::string odd = directory / "\xC3\xA9\xFF", plain = directory / "plain";
    writeWholeFile(odd, "");
    EXPECT_EQ(renameFile(toWide(odd).c_str(), toWide(plain).c_str()), 0);
    EXPECT_TRUE(fs::exists(plain));
    EXPECT_NE(removeFile(toWide(odd).c_str()), 0);
    EXPECT_EQ(removeFile(toWide(plain).c_str()), 0);
    EXPECT_TRUE(fs::is_empty(directory.path()));
    EXPECT_NE(renameFile(toWide(plain).c_str(), toWide(plain).c_str()), 0);
}

TEST(UserCacheDirectory, IsForItsUserAlone) {
    const TemporaryDirectory directory;
    const std::wstring base = toWide(directory.path().string());
    const auto ofUser = [](const std::wstring& below, const wchar_t* user, bool create) {
        const HeapText path(getUserCacheDir(below.c_str(), user, create));
        return std::wstring(path ? path.get() : L"none");
    };
    for (const wchar_t* user : {L"", L"/", L"../ann", L"a/b"})
        EXPECT_EQ(ofUser(base, user, true), L"none") << user;
    EXPECT_EQ(ofUser(base + L"/missing", L"ann", true), L"none");
    EXPECT_EQ(ofUser(base, L"ann", false), base + L"/__ann");
    EXPECT_TRUE(fs::is_empty(directory.path()));
    for (const wchar_t* end : {L"", L"/"})
        EXPECT_EQ(ofUser(base + end, L"ann", true), base + L"/__ann") << "it may exist already";
    EXPECT_EQ(fs::status(directory / "__ann").permissions(), fs::perms{0700});
}

}  // namespace
