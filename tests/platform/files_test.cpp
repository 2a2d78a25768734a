// The guarantees of both kinds of file and of the factory: which files are opened and
// on which descriptors, and that a full disk is reported.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <memory>

#include "fscanner/common/utf8.h"
#include "fscanner/platform/descriptor.h"
#include "fscanner/platform/offered.h"
#include "fscanner/platform/sysfactory.h"
#include "support/child_process.h"
#include "support/temporary_directory.h"

namespace fscanner {
namespace {

using Files = std::vector<std::unique_ptr<AbstractFile>>;

/// One of each kind.
Files filesNamed(const std::string& name) {
    Files files;
    files.push_back(std::make_unique<StdFile>(toWide(name).c_str()));
    files.push_back(std::make_unique<LinuxMmFile>(name.c_str()));
    return files;
}

TEST(AnyFile, KeepsWhatIsWrittenAndIsEmptiedByCreate) {
    const TemporaryDirectory directory;
    for (const auto& file : filesNamed(directory / "data")) {
        EXPECT_FALSE(file->open()) << "missing";
        ASSERT_TRUE(file->create());
        EXPECT_EQ(file->write("0123456789", 10), 10u);
        EXPECT_TRUE(file->close());
        EXPECT_FALSE(file->close());
        ASSERT_TRUE(file->open());
        char buffer[8] = {};
        unsigned length = 0;
        ASSERT_TRUE(file->seek(-4, SEEK_FROM_END));
        EXPECT_TRUE(file->size(&length));
        EXPECT_EQ(length, 10u);
        EXPECT_EQ(file->tell(), 6);
        EXPECT_EQ(file->read(buffer, 8), 4u);
        EXPECT_STREQ(buffer, "6789");
        EXPECT_TRUE(file->eof());
        EXPECT_FALSE(file->seek(0, 4));
        ASSERT_TRUE(file->close());
        ASSERT_TRUE(file->create());
        ASSERT_TRUE(file->close());
        EXPECT_EQ(readWholeFile(directory / "data"), "");
        std::filesystem::remove(directory / "data");
    }
}

TEST(AnyFile, OpensRegularFilesOnly) {
    const TemporaryDirectory directory;
    const std::string fifo = directory / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& name :
         {fifo, directory.path().string(), std::string("/dev/zero"), directory / "none/data"})
        for (const auto& file : filesNamed(name)) {
            EXPECT_FALSE(file->open()) << name;
            EXPECT_FALSE(file->create()) << name;
        }
}

// The stream takes the bytes and loses them later: only the flag tells.
TEST(StreamFile, RemembersBytesThatWereLostByClose) {
    const TemporaryDirectory directory;
    StdFile file(toWide(directory / "data").c_str());
    ASSERT_TRUE(file.create());
    EXPECT_TRUE(file.seek(-5, SEEK_FROM_START)) << "also an offset that is refused";
    EXPECT_EQ(file.tell(), 0);
    ASSERT_TRUE(file.close());
    EXPECT_FALSE(file.transferFailed());
    EXPECT_EQ(0, inChild([&] {
                  if (!limitFileSize(100) || !file.create()) return 1;
                  const std::string bytes(1000, 'x');
                  file.write(bytes.data(), 1000);
                  if (!file.close()) return 2;
                  return file.transferFailed() ? 0 : 3;
              }));
    StdFile nameless(nullptr);
    char buffer[4];
    EXPECT_THAT(std::vector({nameless.create(), nameless.open(), nameless.close(),
                             nameless.seek(0, SEEK_FROM_START)}),
                testing::Each(false));
    EXPECT_EQ(nameless.read(buffer, 4) + nameless.write("abcd", 4), 0u);
    EXPECT_LT(nameless.tell(), 0);
    EXPECT_TRUE(nameless.eof());
}

TEST(Factory, MakesFilesOfWideNamesThatAreNotInheritedAndNoThreads) {
    EXPECT_EQ(SysFactory::createMmFile(nullptr), nullptr);
    EXPECT_EQ(SysFactory::createStdFile(nullptr), nullptr);
    EXPECT_EQ(SysFactory::createThread(nullptr), nullptr);
    const TemporaryDirectory directory;
    const std::string bytes = directory / "\xC3\xA9\xFF";
    const std::wstring name = toWide(bytes);
    ASSERT_TRUE(SysFactory::createMmFile(name.c_str())->create());
    EXPECT_TRUE(SysFactory::createStdFile(name.c_str())->open());
    const Descriptor file = openRegularFile(bytes.c_str(), OpenMode::emptied, 0600);
    ASSERT_TRUE(file);
    EXPECT_NE(::fcntl(file.get(), F_GETFD) & FD_CLOEXEC, 0);
}

}  // namespace
}  // namespace fscanner
