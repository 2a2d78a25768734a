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

struct Kind {
    const char* name;
    std::unique_ptr<AbstractFile> (*make)(const std::string&);
};

class AnyFile : public testing::TestWithParam<Kind> {
protected:
    std::unique_ptr<AbstractFile> make(const std::string& name) { return GetParam().make(name); }
    TemporaryDirectory directory;
};

TEST_P(AnyFile, KeepsWhatIsWrittenAndIsEmptiedByCreate) {
    const auto file = make(directory / "data");
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
    EXPECT_FALSE(file->seek(0, 0));
    EXPECT_FALSE(file->seek(0, 4));
    ASSERT_TRUE(file->close());

    ASSERT_TRUE(file->create());
    ASSERT_TRUE(file->close());
    EXPECT_EQ(readWholeFile(directory / "data"), "");
}

TEST_P(AnyFile, OpensRegularFilesOnly) {
    const std::string fifo = directory / "fifo";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& name :
         {fifo, directory.path().string(), std::string("/dev/zero"), directory / "none/data"}) {
        EXPECT_FALSE(make(name)->open()) << name;
        EXPECT_FALSE(make(name)->create()) << name;
    }
}

// Otherwise the host's error messages would go to a data file on descriptor 2.
TEST_P(AnyFile, LeavesTheStandardDescriptorsAlone) {
    EXPECT_EQ(0, inChild([&] {
                  for (int fd = 0; fd <= 2; ++fd) ::close(fd);
                  const auto file = make(directory / "data");
                  if (!file->create() || file->write("abc", 3) != 3) return 1;
                  for (int fd = 0; fd <= 2; ++fd) {
                      if (::fcntl(fd, F_GETFD) != -1) return 2;
                  }
                  return 0;
              }));
}

std::unique_ptr<AbstractFile> streamFile(const std::string& name) {
    return std::make_unique<StdFile>(toWide(name).c_str());
}
std::unique_ptr<AbstractFile> mappedFile(const std::string& name) {
    return std::make_unique<LinuxMmFile>(name.c_str());
}

INSTANTIATE_TEST_SUITE_P(Kinds, AnyFile,
                         testing::Values(Kind{"Stream", streamFile}, Kind{"Mapped", mappedFile}),
                         [](const auto& row) { return std::string(row.param.name); });

// The stream takes the bytes and loses them later: only the flag reports it.
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
