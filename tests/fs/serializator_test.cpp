// The byte format of saved records, and the effect of damage on a load.

#include <sys/stat.h>

#include <memory>

#include "memory_file.h"

namespace fscanner {
namespace {

using Text = std::unique_ptr<wchar_t[]>;

// Literals with embedded zeros.
template <std::size_t N>
std::string raw(const char (&literal)[N]) {
    return {literal, N - 1};
}

// Each value is a different number.
FsFileInfo fullRecord() {
    struct stat info {};
    info.st_mode = S_IFREG | 0640;
    info.st_dev = 0x13;
    info.st_gid = 0x80000014;
    info.st_uid = 0x80000015;
    info.st_ino = 0x180000016;  // numbers other than size and times are cut without failing
    info.st_atime = -0x17;
    info.st_ctime = 0x100000018;
    info.st_mtime = 0x19;
    info.st_nlink = 0x1A;
    FsFileInfo record;
    record.setFilePath(L"/d");
    record.setFileName(L"n");
    record.setFileSize(0x180000012);  // when it is saved, the high half is lost (deliberate)
    EXPECT_TRUE(record.updateFrom(info));
    return record;
}

TEST(Serializator, SavesStringsAsBytesAndLoadsThemBack) {
    const std::pair<const wchar_t*, std::string> rows[] = {
        {L"", raw("\0\0\0\1")},
        {nullptr, raw("\0\0\0\0")},
        {L"a\x00E9", raw("\0\0\0\4a\xC3\xA9")},
        {L"\xDC80\xDCFF", raw("\0\0\0\7\xED\xB2\x80\xED\xB3\xBF")},  // undecodable bytes
        {L"\x7FFFFFFF", raw("\0\0\0\7\xFD\xBF\xBF\xBF\xBF\xBF")},
    };
    for (const auto& [text, bytes] : rows) {
        MemoryFile file;
        FsSerializator_OnFile both(&file, false);
        EXPECT_TRUE(both.saveString(text));
        EXPECT_EQ(file.bytes, bytes);
        EXPECT_STREQ(Text(both.loadString()).get(), text);
    }
    MemoryFile file;
    FsSerializator_OnFile both(&file, false);
    for (const std::size_t length : {126u, 127u, 128u, 4095u, 4096u, 100000u, 3u}) {
        std::wstring text(length, L'x');
        text.back() = L'\x00E9';
        ASSERT_TRUE(both.saveString(text.c_str()));
        EXPECT_STREQ(Text(both.loadString()).get(), text.c_str()) << length;
    }
    EXPECT_TRUE(both.saveUnsigned32(0x81020384));
    EXPECT_TRUE(both.saveInteger32(-2));
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

TEST(Serializator, ErrorsStickUntilResetAndItClosesAFileThatItOwns) {
    MemoryFile file("", 3), owned;
    FsSerializator_OnFile both(&file, false), none(nullptr, true);
    EXPECT_FALSE(both.saveUnsigned32(1));
    file.room = 100;
    none.reset();
    for (FsSerializator_OnFile* useless : {&both, &none}) {
        EXPECT_FALSE(useless->saveString(L"a"));
        EXPECT_EQ(useless->loadString(), nullptr);
        EXPECT_EQ(useless->loadUnsigned32(), 0u);
        EXPECT_EQ(useless->getLastError(), -1);
    }
    EXPECT_EQ(file.position, 0u);
    EXPECT_EQ(file.bytes.size(), 3u);
    both.reset();
    EXPECT_TRUE(both.saveUnsigned32(1));
    EXPECT_EQ(both.getLastError(), 0);
    FsSerializator_OnFile(&owned, true);
    EXPECT_TRUE(owned.closed);
    EXPECT_FALSE(file.closed);
}

TEST(SavedRecord, HoldsEachFactInItsPlace) {
    const std::string bytes = savedBytes(fullRecord());
    EXPECT_EQ(bytes, raw("\0\0\0\3/d\0\0\0\2n\0\0\3\xFF\0\0\x20\x16\x80\0\0\x12\0\0\0\x13"
                         "\x80\0\0\x14\x80\0\0\x15\x80\0\0\x16\xFF\xFF\xFF\xE9\0\0\0\x18"
                         "\0\0\0\x19\0\0\0\x1A"));
    MemoryFile file(bytes);
    FsSerializator_OnFile in(&file, false);
    FsFileInfo record;
    ASSERT_EQ(record.loadObject(in), 0);
    EXPECT_EQ(savedBytes(record), bytes);
    EXPECT_EQ(record.getSize(), 0x80000012ull) << "unsigned: the high half is 0";
    EXPECT_EQ(record.getLastAccessTime(), -0x17);
    EXPECT_EQ(fullRecord().getCreateTime(), 0x100000018) << "only what is saved is cut";
}

TEST(SavedRecord, UnknownMaskBitsCarryNothing) {
    std::string bytes = savedBytes(fullRecord());
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
