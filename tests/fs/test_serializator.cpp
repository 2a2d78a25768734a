// The byte format of saved records, and what damage does to a load.

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <string>

#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_serializator_file.h"
#include "memory_file.h"

namespace fscanner {
namespace {

using Text = std::unique_ptr<wchar_t[]>;

// Literals with embedded zeros.
template <std::size_t N>
std::string raw(const char (&literal)[N]) {
    return {literal, N - 1};
}

std::string saved(const FsFileInfo& record) {
    MemoryFile file;
    FsSerializator_OnFile out(&file, false);
    EXPECT_EQ(record.saveObject(out), 0);
    return file.bytes;
}

FsFileInfo fullRecord() {
    FsFileInfo record;
    std::string bytes = raw("\0\0\0\3/d\0\0\0\2n\0\0\3\xFF");
    for (int i = 0; i < 10; ++i) bytes += raw("\x80\0\0") + static_cast<char>('a' + i);
    MemoryFile file(bytes);
    FsSerializator_OnFile in(&file, false);
    EXPECT_EQ(record.loadObject(in), 0);
    EXPECT_EQ(saved(record), bytes);
    return record;
}

TEST(Serializator, SavesStringsAsBytesAndLoadsThemBack) {
    struct Row {
        const wchar_t* text;
        std::string bytes;
    };
    const Row rows[] = {
        {L"", raw("\0\0\0\1")},
        {nullptr, raw("\0\0\0\0")},
        {L"ab", raw("\0\0\0\3ab")},
        {L"\x00E9", raw("\0\0\0\3\xC3\xA9")},
        {L"\x20AC", raw("\0\0\0\4\xE2\x82\xAC")},
        {L"\xDC80\xDCFF", raw("\0\0\0\7\xED\xB2\x80\xED\xB3\xBF")},  // undecodable bytes
        {L"\x1F600", raw("\0\0\0\5\xF0\x9F\x98\x80")},
        {L"\x7FFFFFFF", raw("\0\0\0\7\xFD\xBF\xBF\xBF\xBF\xBF")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.bytes));
        MemoryFile file;
        FsSerializator_OnFile both(&file, false);
        EXPECT_TRUE(both.saveString(row.text));
        EXPECT_EQ(file.bytes, row.bytes);
        const Text loaded(both.loadString());
        EXPECT_STREQ(loaded.get(), row.text);
        EXPECT_EQ(both.getLastError(), 0);
    }
}

TEST(Serializator, LoadsStringsOfEveryLengthAndNumbers) {
    MemoryFile file;
    FsSerializator_OnFile both(&file, false);
    for (const std::size_t length : {126u, 127u, 128u, 4095u, 4096u, 100000u, 3u}) {
        std::wstring text(length, L'x');
        text.back() = L'\x00E9';
        ASSERT_TRUE(both.saveString(text.c_str()));
        const Text loaded(both.loadString());
        EXPECT_STREQ(loaded.get(), text.c_str()) << length;
    }
    EXPECT_TRUE(both.saveUnsigned32(0x81020384) && both.saveInteger32(-2));
    EXPECT_TRUE(file.bytes.ends_with(raw("\x81\2\3\x84\xFF\xFF\xFF\xFE")));
    EXPECT_EQ(both.loadUnsigned32(), 0x81020384u);
    EXPECT_EQ(both.loadInteger32(), -2);
}

TEST(Serializator, CountsThatPassTheEndOfTheFileTakeNoMemory) {
    for (const std::string& count : {raw("\xFF\xFF\xFF\xFF"), raw("\0\1\0\0"), raw("\0\0\x10\1")}) {
        MemoryFile file(count + std::string(4095, 'x'));
        FsSerializator_OnFile in(&file, false);
        EXPECT_EQ(in.loadString(), nullptr);
        EXPECT_EQ(in.getLastError(), -1);
        EXPECT_LE(file.largestRead, 4096u) << testing::PrintToString(count);
    }
}

TEST(Serializator, ErrorsStickUntilReset) {
    MemoryFile file("", 3);
    FsSerializator_OnFile both(&file, false);
    EXPECT_FALSE(both.saveUnsigned32(1));
    file.room = 100;
    EXPECT_FALSE(both.saveString(L"a") || both.saveInteger32(1));
    EXPECT_EQ(both.loadString(), nullptr);
    EXPECT_EQ(both.loadUnsigned32(), 0u);
    EXPECT_EQ(file.position, 0u);
    EXPECT_EQ(file.bytes.size(), 3u);
    EXPECT_EQ(both.getLastError(), -1);
    both.reset();
    EXPECT_EQ(both.getLastError(), 0);
    EXPECT_TRUE(both.saveUnsigned32(1));
}

TEST(Serializator, ClosesAFileThatItOwnsAndCopesWithNone) {
    MemoryFile borrowed, owned;
    FsSerializator_OnFile(&borrowed, false);
    FsSerializator_OnFile(&owned, true);
    EXPECT_FALSE(borrowed.closed);
    EXPECT_TRUE(owned.closed);

    FsSerializator_OnFile none(nullptr, true);
    EXPECT_EQ(none.getLastError(), -1);
    none.reset();
    EXPECT_FALSE(none.saveString(L"a"));
    EXPECT_EQ(none.loadString(), nullptr);
    EXPECT_EQ(none.getLastError(), -1);
}

TEST(SavedRecord, HoldsWhatIsKnownInOrder) {
    FsFileInfo record;
    record.setFilePath(L"/d");
    record.setFileSize(0x100000005ull);  // the high half is lost (deliberate)
    record.setLastModifyTime(-1);
    record.setLastAccessTime(2);
    record.setCreateTime(3);
    EXPECT_EQ(saved(record), raw("\0\0\0\3/d\0\0\0\0\0\0\1\xC2\0\0\0\5\0\0\0\2\0\0\0\3"
                                 "\xFF\xFF\xFF\xFF"));
}

TEST(SavedRecord, LoadsEveryFieldFromItsPlace) {
    const FsFileInfo record = fullRecord();
    EXPECT_STREQ(record.getPath(), L"/d");
    EXPECT_STREQ(record.getName(), L"n");
    EXPECT_EQ(record.knownMask(), 0x3FFu);
    EXPECT_EQ(record.getAttr(), 0x80000061u);
    EXPECT_EQ(record.getSize(), 0x80000062ull) << "unsigned: the high half is 0";
    EXPECT_EQ(record.getGroupId(), 0x80000064u);
    EXPECT_EQ(record.getUserId(), 0x80000065u);
    EXPECT_EQ(record.getINode(), 0x80000066u);
    EXPECT_EQ(record.getLastAccessTime(), INT_MIN + 0x67);
    EXPECT_EQ(record.getCreateTime(), INT_MIN + 0x68);
    EXPECT_EQ(record.getLastModifyTime(), INT_MIN + 0x69);
}

TEST(SavedRecord, CutAnywhereItFailsToLoadAndToSave) {
    const FsFileInfo whole = fullRecord();
    const std::string bytes = saved(whole);
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        MemoryFile cut(bytes.substr(0, length));
        FsSerializator_OnFile in(&cut, false);
        FsFileInfo record;
        EXPECT_EQ(record.loadObject(in), -1) << length;
        EXPECT_EQ(record.loadObject(in), -1) << length;
        EXPECT_EQ(record.getPath(), nullptr) << "nothing stays of the first try";

        MemoryFile full("", length);
        FsSerializator_OnFile out(&full, false);
        EXPECT_EQ(whole.saveObject(out), -1) << length;
        EXPECT_EQ(full.bytes, bytes.substr(0, length));
    }
}

TEST(SavedRecord, UnknownMaskBitsCarryNothing) {
    std::string bytes = saved(fullRecord());
    bytes.replace(bytes.find("\3\xFF") - 2, 4, "\xFF\xFF\xFF\xFF");
    MemoryFile file(bytes);
    FsSerializator_OnFile in(&file, false);
    FsFileInfo record;
    EXPECT_EQ(record.loadObject(in), 0);
    EXPECT_TRUE(file.eof());
    EXPECT_TRUE(record.updateInfo()) << "everything is known";
}

}  // namespace
}  // namespace fscanner
