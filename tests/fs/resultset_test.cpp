// Results in a vector and in a temporary file: the bytes, the reader's states, and the
// file's life.

#include <gmock/gmock.h>
#include <malloc.h>
#include <sys/stat.h>

#include <cerrno>

#include "fs/memory_file.h"
#include "fs/result_file_support.h"
#include "fscanner/common/debug.h"
#include "fscanner/fs/fs_resource_manager.h"
#include "fscanner/fs/fs_resultset_vector.h"
#include "support/child_process.h"
#include "support/private_mounts.h"

namespace fscanner {
namespace {

using ::testing::IsEmpty;

using namespace std::string_literals;

// The worked example of docs/formats/result-records.md.
const std::string kExample = "\0\0\0\3/a\0\0\0\2b\0\0\0\3\0\0\x20\0\0\0\0\3"s;

std::unique_ptr<FsResultSetReader> threeRecords() {
    FsResultSet_OnFile results;
    for (const wchar_t* name : {L"b", L"c", L"a"})
        results.getWriter()->addRecord(L"/d", name, 1, FS_ATTR_REGULAR_FILE);
    return std::unique_ptr<FsResultSetReader>(results.getReader());
}

// The guarantees of both kinds of result set.
class ResultForms : public ::testing::TestWithParam<bool> {
protected:
    static std::unique_ptr<FsResultSet> make() {
        if (GetParam()) return std::make_unique<FsResultSet_OnFile>();
        return std::make_unique<FsResultSet_OnVector>();
    }
    ResultDirectory directory_;
};
INSTANTIATE_TEST_SUITE_P(Both, ResultForms, ::testing::Bool(),
                         [](const auto& form) { return form.param ? "File" : "Vector"; });

TEST_P(ResultForms, KeepWhatIsWrittenInOrderAndOutliveTheSet) {
    auto results = make();
    FsResultSetWriter* writer = results->getWriter();
    EXPECT_EQ(results->getWriter(), writer);
    FsFileInfo facts, time;
    facts.setFilePath(L"/\x00e9\xdc80\x10ffff");
    facts.setFileName(L"c");
    facts.setFileSize(7);
    facts.setFileAttr(FS_ATTR_REGULAR_FILE);
    time.setFilePath(L"/d");
    time.setFileName(L"");
    time.setLastModifyTime(-5);
    EXPECT_EQ(writer->addRecord(facts.getPath(), L"c", 7, FS_ATTR_REGULAR_FILE), 0);
    EXPECT_EQ(writer->addRecord(time), 0);
    const std::unique_ptr<FsResultSetReader> reader(results->getReader());
    EXPECT_EQ(results->getReader(), reader.get());
    EXPECT_EQ(writer->close(), 0);
    results.reset();

    for (int turn = 0; turn < 2; ++turn) {
        reader->moveFirst();
        FsFileInfo record;
        for (const FsFileInfo* expected : {&facts, &time}) {
            ASSERT_TRUE(reader->getNext(record));
            EXPECT_EQ(savedBytes(record), savedBytes(*expected));
        }
        EXPECT_FALSE(reader->getNext(record));
        EXPECT_FALSE(reader->getNext(record));
    }
}

TEST(VectorResults, StayAsTheyAre) {
    FsResultSet_OnVector results;
    for (const wchar_t* name : {L"c", L"b"}) results.getWriter()->addRecord(L"/d", name, 0, 0);
    const std::unique_ptr<FsResultSetReader> reader(results.getReader());
    FsFileInfo record;
    ASSERT_TRUE(reader->getNext(record));
    EXPECT_EQ(reader->sort(FS_SORT_NAME, FS_SORT_ASCENDING, true), 0);
    EXPECT_EQ(reader->setBookmark() | reader->toBookmark(), 0);
    EXPECT_EQ(namesLeft(*reader), L"b") << "sorting does nothing";
    EXPECT_FALSE(reader->getNext(record));
    EXPECT_STREQ(record.getName(), L"c") << "left as it was";
    EXPECT_EQ(results.getWriter()->addRecord(L"/d", L"d", 0, 0), 0);
    EXPECT_EQ(namesLeft(*reader), L"d") << "added behind an exhausted reader";
    EXPECT_EQ(FsResultSetWriter_OnVector(nullptr).addRecord(record), -1);
    FsResultSetReader_OnVector storeless(nullptr);
    storeless.moveFirst();
    EXPECT_EQ(namesLeft(storeless), L"");
}

class ResultFile : public ::testing::Test {
protected:
    ResultDirectory directory_;
};

TEST_F(ResultFile, HoldsTheDocumentedBytesForItsOwnerAlone) {
    FsResultSet_OnFile results;
    EXPECT_THAT(directory_.files(), IsEmpty()) << "made with the writer";
    FsResultSetWriter* writer = results.getWriter();
    ASSERT_EQ(writer->addRecord(L"/a", L"b", 3, FS_ATTR_REGULAR_FILE), 0);
    EXPECT_EQ(writer->close(), 0);
    EXPECT_EQ(readWholeFile(directory_.file()), kExample);
    struct stat info;
    ASSERT_EQ(::stat(directory_.file().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);

    EXPECT_EQ(writer->close(), 0) << "the second time";
    EXPECT_EQ(writer->addRecord(L"/a", L"b", 3, 0), -1);
}

TEST_F(ResultFile, GoesWithTheSetTheReaderOrTheCleanupHandlersOfACode) {
    FsResultSet_OnFile().getWriter()->addRecord(L"/d", L"a", 1, 0);
    EXPECT_THAT(directory_.files(), IsEmpty());
    auto reader = threeRecords();
    FsResourceManager::getInstance()->invokeCleanupHandlers(0);
    EXPECT_EQ(directory_.files().size(), 1u);
    reader.reset();
    EXPECT_THAT(directory_.files(), IsEmpty());
    reader = threeRecords();
    FsResourceManager::getInstance()->invokeCleanupHandlers(3);
    EXPECT_THAT(directory_.files(), IsEmpty());
}

// A file that has the name while ours has not is another's.
TEST_F(ResultFile, NothingElseIsWrittenOrRemoved) {
    FsResourceManager& manager = *FsResourceManager::getInstance();
    writeWholeFile(directory_ / "victim", "precious");
    {
        FsResultSet_OnFile results;
        ASSERT_EQ(::symlink("victim", (directory_ / "results0").c_str()), 0);
        manager.invokeCleanupHandlers(3);
        EXPECT_EQ(results.getWriter()->addRecord(L"/d", L"a", 1, 0), 0);
        manager.invokeCleanupHandlers(3);
    }
    EXPECT_EQ(directory_.files().size(), 2u) << "the link is not ours to remove";
    {
        const auto reader = threeRecords();
        const std::string ours = directory_ / "results2";
        ASSERT_TRUE(std::filesystem::exists(ours));
        // Renamed, not removed: no other file gets its inode number.
        std::filesystem::rename(ours, directory_ / "moved");
        writeWholeFile(ours, "precious");
        manager.invokeCleanupHandlers(3);
    }
    for (const char* name : {"victim", "results2"})
        EXPECT_EQ(readWholeFile(directory_ / name), "precious");
    for (const char* device : {"/dev/null", "/dev/zero"}) {
        FsResultSetWriter_OnFile(device).close();
        FsResultSetReader_OnFile(device).moveFirst();
        EXPECT_TRUE(std::filesystem::exists(device));
    }
}

// Nothing is left of it when the process is killed, because it never has a name. Where it needs
// a name, the cleanup handlers know it.
TEST_F(ResultFile, HasNoNameWhereNoneIsWanted) {
    const std::string place = directory_ / "";
    const TempNameSource saved = tempNameSource();
    tempNameSource().fallbackDirectory = place.c_str();
    const auto writeAndSort = [&](std::size_t named) {
        std::unique_ptr<FsResultSetReader> reader;
        {
            FsResultSet_OnFile results(FsUnnamed::unnamed);
            for (const wchar_t* name : {L"b", L"c", L"a"})
                if (results.getWriter()->addRecord(L"/d", name, 1, 0) != 0) return 1;
            reader.reset(results.getReader());
        }
        if (directory_.files().size() != named) return 2;
        reader->sort(FS_SORT_NAME, FS_SORT_ASCENDING, true);
        reader->moveFirst();
        if (namesLeft(*reader) != L"abc" || directory_.files().size() != named) return 3;
        FsResourceManager::getInstance()->invokeCleanupHandlers(3);
        return directory_.files().empty() ? 0 : 4;
    };
    EXPECT_EQ(writeAndSort(0), 0);
    const int withoutProc = inChild([&] {
        if (!enterPrivateMounts() || !mountMemory("none", "/proc")) return kNotAllowed;
        return writeAndSort(1);
    });
    EXPECT_THAT(withoutProc, ::testing::AnyOf(0, kNotAllowed));
    tempNameSource() = saved;
}

/// The memory of a host that asks for years must not grow. Sanitizers do not count memory.
TEST_F(ResultFile, LeavesNoMemoryBehind) {
    const auto ask = [] {
        for (int i = 0; i < 300; ++i) {
            FsResultSet_OnFile set;
            set.getWriter()->addRecord(L"/d", L"a", 1, 0);
            const std::unique_ptr<FsResultSetReader> reader(set.getReader());
            reader->moveFirst();
            FsFileInfo record;
            EXPECT_TRUE(reader->getNext(record));
        }
    };
    ask();  // memory that is kept once
    const auto before = mallinfo2().uordblks;
    ask();
    EXPECT_LT(mallinfo2().uordblks, before + 16 * 1024);
}

TEST_F(ResultFile, IsReadFromMoveFirstOn) {
    const auto reader = threeRecords();
    FsFileInfo record;
    EXPECT_FALSE(reader->getNext(record));
    EXPECT_EQ(reader->setBookmark() | reader->toBookmark(), 0);
    reader->moveFirst();
    EXPECT_EQ(reader->toBookmark(), 1) << "the start, when none was set";
    ASSERT_TRUE(reader->getNext(record));
    EXPECT_EQ(reader->setBookmark(), 1);
    EXPECT_EQ(namesLeft(*reader), L"ca");
    EXPECT_FALSE(reader->getNext(record));
    EXPECT_EQ(record.getName(), nullptr) << "cleared before the read that failed";
    reader->moveFirst();
    EXPECT_EQ(reader->toBookmark(), 1);
    EXPECT_EQ(namesLeft(*reader), L"ca") << "the bookmark survives moveFirst";
    // Sorted in place, and closed.
    reader->moveFirst();
    EXPECT_EQ(reader->sort(5, FS_SORT_ASCENDING, true), 0);
    EXPECT_EQ(namesLeft(*reader), L"bca") << "untouched and still open";
    for (const auto& [direction, names] : {std::pair{3u, L"bca"}, {FS_SORT_DESCENDING, L"cba"}}) {
        EXPECT_EQ(reader->sort(FS_SORT_NAME, direction, true), 1) << "attempted";
        EXPECT_EQ(namesLeft(*reader), L"") << "closed";
        reader->moveFirst();
        EXPECT_EQ(namesLeft(*reader), names);
    }
    EXPECT_EQ(directory_.files().size(), 1u);
}

TEST_F(ResultFile, MissingOrNullIsNotRead) {
    FsResultSetReader_OnFile missing((directory_ / "nothing").c_str());
    missing.moveFirst();
    EXPECT_EQ(namesLeft(missing), L"");
    EXPECT_DEATH(FsResultSetReader_OnFile(nullptr), "filename != 0");
    for (const char* nowhere : {static_cast<const char*>(nullptr), "/no/such/directory"})
        EXPECT_EQ(FsResultSetWriter_OnFile(nowhere).addRecord(L"/", L"a", 0, 0), -1);
}

TEST(TempFile, IsMadeInTheSecondDirectoryOrEndsTheProcess) {
    const TemporaryDirectory directory;
    const std::string there = directory / "", log = directory / "log";
    writeWholeFile(directory / "fsq_0", "kept");
    const TempNameSource saved = tempNameSource();
    EXPECT_STREQ(saved.directory, "./");
    EXPECT_STREQ(saved.fallbackDirectory, "/tmp/");
    tempNameSource() = {[](char*) -> char* { return nullptr; }, "/no/such/", there.c_str()};
    {
        FsResultSet_OnFile results;
        EXPECT_EQ(std::filesystem::file_size(directory / "fsq_1"), 0u);
        EXPECT_EQ(results.getWriter()->addRecord(L"/a", L"b", 3, FS_ATTR_REGULAR_FILE), 0);
        results.getWriter()->close();
        EXPECT_EQ(readWholeFile(directory / "fsq_1"), kExample);
    }
    EXPECT_FALSE(std::filesystem::exists(directory / "fsq_1"));
    EXPECT_EQ(readWholeFile(directory / "fsq_0"), "kept");

    tempNameSource().fallbackDirectory = "/no/such/";
    EXPECT_EXIT(
        {
            startDebug(log.c_str());
            errno = 0;
            FsResultSet_OnFile results;
        },
        ::testing::ExitedWithCode(41), "");
    EXPECT_EQ(readWholeFile(log),
              "The temp file name is: (null)\nExiting due to null temp file name: No such file or "
              "directory\n");
    tempNameSource() = saved;
}

}  // namespace
}  // namespace fscanner
