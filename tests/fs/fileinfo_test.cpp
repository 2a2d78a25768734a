// The record: which facts it fetches and when, its copies and comparisons.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <memory>
#include <utility>

#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "support/log_capture.h"

namespace fscanner {
namespace {

FsFileInfo recordOf(const wchar_t* path, const wchar_t* name) {
    FsFileInfo record;
    record.setFilePath(path);
    record.setFileName(name);
    return record;
}

class Record : public testing::Test {
protected:
    void TearDown() override { FsFileInfo::setLargeFileSupport(false); }
    // The record of a file of the directory. A `length` of 0 or more makes the file first.
    FsFileInfo fileRecord(const std::string& name, off_t length = -1) {
        if (length >= 0) {
            writeWholeFile(directory / name, "");
            EXPECT_EQ(::truncate((directory / name).c_str(), length), 0);
        }
        return recordOf(toWide(directory.path().string()).c_str(), toWide(name).c_str());
    }

    TemporaryDirectory directory;
};

TEST_F(Record, FetchesWhatTheSystemSays) {
    const std::string name = "\xC3\xA9\xFF.txt";  // not valid UTF-8, and not ASCII
    const FsFileInfo record = fileRecord(name, 123);
    EXPECT_EQ(record.knownMask(), 0u);
    EXPECT_EQ(record.getSize(), 123u);
    EXPECT_EQ(record.knownMask(), 0x3FFu);

    FsFileInfo partly = fileRecord(name);
    partly.setFileSize(7);
    partly.setLastModifyTime(8);
    EXPECT_EQ(partly.getSize(), 7u);
    EXPECT_EQ(partly.knownMask(), 0x102u) << "nothing was asked";
    EXPECT_NE(partly.getAttr(), 0u);
    EXPECT_EQ(partly.getSize(), 7u) << "what was set stays";
    EXPECT_EQ(partly.getLastModifyTime(), 8);
}

TEST_F(Record, TranslatesModes) {
    const std::pair<mode_t, unsigned> rows[] = {
        {S_IFREG | 0640, 0x2016}, {S_IFREG | 0421, 0x2222}, {S_IFDIR | 0755, 0x02DF},
        {S_IFLNK | 0777, 0x13FE}, {S_IFCHR | 0666, 0x41B6}, {S_IFCHR | 0111, 0x4248},
        {S_IFBLK | 0000, 0x0000}, {S_IFIFO | 0001, 0x0200}, {S_IFSOCK | 0700, 0x000E},
    };
    for (const auto& [mode, attributes] : rows) {
        struct stat info {};
        info.st_mode = mode;
        FsFileInfo record;
        EXPECT_TRUE(record.updateFrom(info));
        EXPECT_EQ(record.getAttr(), attributes) << std::oct << mode;
    }
    ASSERT_EQ(::symlink("nowhere", (directory / "link").c_str()), 0);
    EXPECT_EQ(fileRecord("link").getAttr() & 0xF001, unsigned{FS_ATTR_SYMBOLIC_LINK});
}

TEST_F(Record, SizesAre32BitsUnlessTheHostOptsOut) {
    EXPECT_EQ(fileRecord("fits", 0x7FFFFFFF).getSize(), 0x7FFFFFFFu);
    const FsFileInfo large = fileRecord("large", 0x80000000);
    EXPECT_EQ(large.getSize(), 0u);
    EXPECT_EQ(large.getAttr(), 0u);
    EXPECT_TRUE(large.hasError());
    EXPECT_EQ(large.knownMask(), 0u);
    FsFileInfo::setLargeFileSupport(true);
    EXPECT_EQ(large.getSize(), 0x80000000u) << "the next getter tries again";
}

TEST_F(Record, FailedFetchIsLoggedAndTriedAgain) {
    const LogCapture log;
    const FsFileInfo record = fileRecord("a");
    EXPECT_EQ(record.getSize(), 0u);
    EXPECT_TRUE(record.hasError());
    EXPECT_EQ(record.knownMask(), 0u);
    const std::string path = directory / "a";
    EXPECT_EQ(log.text(), "FsFileInfo::updateInfo - lstat(...) failed on '" + path + "' path\n");
    fileRecord("a", 5);
    EXPECT_EQ(record.getSize(), 5u);

    EXPECT_FALSE(recordOf(nullptr, L"a").updateInfo());
    EXPECT_FALSE(recordOf(L"/", std::wstring(100000, L'x').c_str()).updateInfo());
}

TEST_F(Record, CopiesAreDeepAndComplete) {
    FsFileInfo original = recordOf(L"/some/directory", L"name");
    original.setFileAttr(1);
    EXPECT_FALSE(original.hasError());
    original.getSize();  // fails; the error is copied as well
    FsFileInfo copy(original), assigned = recordOf(L"x", L"a much longer name than that"), moved;
    assigned = original;
    moved = FsFileInfo(original);
    for (const FsFileInfo* record : {&copy, &assigned, &moved}) {
        EXPECT_STREQ(record->getPath(), L"/some/directory");
        EXPECT_STREQ(record->getName(), L"name");
        EXPECT_NE(record->getPath(), original.getPath());
        EXPECT_EQ(record->getAttr(), 1u);
        EXPECT_EQ(record->knownMask(), 1u);
        EXPECT_TRUE(record->hasError());
    }
    assigned = FsFileInfo();
    EXPECT_EQ(assigned.getPath(), nullptr);
    copy.clear();
    EXPECT_EQ(copy.getName(), nullptr);
    EXPECT_EQ(copy.knownMask(), 0u);
    EXPECT_FALSE(copy.hasError());
}

// The buffer of a text is used again: its old content must not show, and the new
// text may be a part of it.
TEST_F(Record, TextsReplaceEachOther) {
    FsFileInfo record;
    for (const wchar_t* text :
         {L"abc", L"a", L"", L"abcdefghij", static_cast<const wchar_t*>(nullptr), L"ab"}) {
        record.setFileName(text);
        EXPECT_STREQ(record.getName(), text);
    }
    record.setFilePath(L"/x/y");
    record.setFilePath(record.getPath() + 2);
    EXPECT_STREQ(record.getPath(), L"/y");
    const FsFileInfo& self = record;
    record = self;
    EXPECT_STREQ(record.getPath(), L"/y");
}

TEST_F(Record, ComparesByField) {
    enum : unsigned { EQ, GE, LE, GT, LT, NE };
    const struct {
        const wchar_t *path, *name, *otherPath, *otherName;
        int field;
        unsigned op;
        bool caseSensitive, expected;
    } rows[] = {
        {L"/a", L"x", L"/a", L"y", 1, EQ, true, true},
        {L"/a", L"X", L"/a", L"x", 2, EQ, true, false},
        {L"/a", L"X", L"/a", L"x", 2, EQ, false, true},
        {L"/a", L"abc", L"/a", L"a*", 2, EQ, true, true},   // the other's text is a pattern
        {L"/a", L"a*", L"/a", L"abc", 2, EQ, true, false},  // and only the other's
        {L"/a", L"b", L"/", L"a/b", 3, EQ, true, true},
        {nullptr, L"b", nullptr, L"b", 1, EQ, true, false},
        {L"/a", nullptr, L"/a", L"b", 2, NE, true, false},
        {L"/a", L"x", L"/a", L"x", 5, EQ, true, false},
    };
    for (const auto& [path, name, otherPath, otherName, field, op, cased, expected] : rows) {
        FsFileInfo one = recordOf(path, name), other = recordOf(otherPath, otherName);
        EXPECT_EQ(one.compare(other, field, op, cased), expected) << otherName << field;
    }
    FsFileInfo one = fileRecord("small", 10), other = fileRecord("large", 20);
    EXPECT_TRUE(one.compare(other, 4, EQ, true)) << "unknown sizes are 0, and nothing is asked";
    EXPECT_EQ(one.knownMask() | other.knownMask(), 0u);
    one.setFileSize(0x100000000);
    other.setFileSize(1);
    EXPECT_TRUE(one.compare(other, 4, GT, true));
}

TEST(PathName, JoinsWithOneSeparator) {
    const wchar_t* rows[][3] = {
        {L"/", L"a", L"/a"}, {L"", L"a", L"a"}, {L"/x", L"", L"/x/"}, {nullptr, L"a", nullptr}};
    for (const auto& [dir, name, joined] : rows)
        EXPECT_STREQ(std::unique_ptr<wchar_t[]>(getPathName(dir, name)).get(), joined);
}

}  // namespace
}  // namespace fscanner
