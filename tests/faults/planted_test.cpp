// Others put files where ours go and try to read ours. Hosts have closed their standard
// descriptors.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <array>
#include <chrono>

#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_store.h"
#include "fscanner/filetype/directory_types.h"
#include "fscanner/fs/fs_resultset_file.h"
#include "fscanner/fs/temp_files.h"
#include "host.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

struct Plant {
    const char* name;
    /// Plants it at a path; with a file that the attacker wants destroyed, and one to be made.
    void (*put)(const std::string& path, const std::string& victim, const std::string& created);
    mode_t mode = 0666;
};

const Plant kPlants[] = {
    {"Link", [](auto& path, auto& victim, auto&) { fs::create_symlink(victim, path); }},
    {"DanglingLink", [](auto& path, auto&, auto& created) { fs::create_symlink(created, path); }},
    {"HardLink", [](auto& path, auto& victim, auto&) { fs::create_hard_link(victim, path); }},
    {"Fifo", [](auto& path, auto&, auto&) { ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0); }},
    {"Directory", [](auto& path, auto&, auto&) { fs::create_directory(path); }},
    {"Unreadable", [](auto& path, auto&, auto&) { writeWholeFile(path, ""); }, 0},
    {"Foreign", [](auto& path, auto&, auto&) { writeWholeFile(path, "his"); }},
};

// A name that another user took, and the file that he wants us to destroy.
class Planted : public testing::TestWithParam<Plant> {
protected:
    Planted() {
        host.plant(2, 2);
        writeWholeFile(victim, "precious");
        ::chmod(victim.c_str(), 0640);
    }
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    }

    void plant(const std::string& name) const {
        GetParam().put(name, victim, created);
        if (is("HardLink")) return;
        if (is("Unreadable") || is("Foreign")) ::chmod(name.c_str(), GetParam().mode);
        ASSERT_EQ(::lchown(name.c_str(), kNobody, kNobody), 0);
    }
    static bool is(const std::string& name) { return name == GetParam().name; }
    void expectUnharmed() const {
        struct stat info {};
        ASSERT_EQ(::lstat(victim.c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777, 0640U);
        EXPECT_EQ(info.st_uid, ::geteuid());
        EXPECT_EQ(readWholeFile(victim), "precious");
        EXPECT_FALSE(fs::exists(created)) << "made through a link";
    }
    template <typename Body>
    static void expectQuick(Body body) {
        const auto start = std::chrono::steady_clock::now();
        body();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    }

    FaultHost host;
    std::string victim = host.place.path("victim");
    std::string created = host.place.path("created");
};

// In a directory that all may write to: it costs nothing, however often it is planted again.
TEST_P(Planted, AccessMutex) {
    const std::string name =
        host.place.path("locks/" + toMultibyte(accessMutexName(host.cacheDirectory())));
    for (int time = 0; time < 2; ++time) {
        fs::remove(name);
        plant(name);
        expectQuick([&] {
            const Answer answer = host.ask();
            EXPECT_EQ(answer.status, 0);
            EXPECT_EQ(answer.paths, host.truth());
            EXPECT_EQ(answer.walked == 0, time > 0) << "the second is answered from the cache";
        });
        expectUnharmed();
    }
}

// In the cache's own directory, only a directory is left in place.
TEST_P(Planted, LockFile) {
    ASSERT_EQ(host.ask().status, 0);
    const std::string name = host.place.path("cache/fscanner.lock");
    fs::remove(name);
    plant(name);
    const bool inTheWay = is("Directory");
    expectQuick([&] { EXPECT_EQ(host.ask().status, inTheWay ? FS_CACHE_FAILURE : 0); });
    expectUnharmed();
    if (inTheWay || is("HardLink")) return;  // our own file, under a second name
    struct stat info {};
    ASSERT_EQ(::lstat(name.c_str(), &info), 0);
    EXPECT_TRUE(S_ISREG(info.st_mode));
    EXPECT_EQ(info.st_mode & 07777, 0600U);
    EXPECT_EQ(info.st_uid, ::geteuid());
}

TEST_P(Planted, TemporaryAndSortFiles) {
    const std::string directory = host.place.path("temporary/");
    tempNameSource() = {[](char*) -> char* { return nullptr; }, directory.c_str(),
                        directory.c_str()};
    // One number is free.
    for (const char* name : {"fsq_0", "fsq_2", "fsq_1.a", "fsq_1.b"}) plant(directory + name);
    std::vector<std::string> paths;
    expectQuick([&] {
        int status = -1;
        paths = FaultHost::pathsOf(*host.askForFile(status, FS_SORT_PATHNAME));
        EXPECT_EQ(status, 0);
    });
    tempNameSource() = {std::tmpnam, "./", "/tmp/"};
    std::reverse(paths.begin(), paths.end());
    EXPECT_EQ(paths, host.truth());
    EXPECT_EQ(FaultHost::walkFresh(directory).size(), is("Directory") ? 0U : 4U)
        << "what others made stays";
    expectUnharmed();
}

// Another user may tell a host where to write.
TEST_P(Planted, ResultFileOfAHost) {
    const std::string name = host.place.path("temporary/results");
    plant(name);
    const auto isThere = [&] { return fs::exists(fs::symlink_status(name)); };
    const bool isFile = is("Unreadable") || is("Foreign") || is("HardLink");
    if (!isFile && !is("Link")) {
        FsResultSetWriter_OnFile writer(name.c_str());
        writer.addRecord(L"/d", L"a", 1, 0);
        expectQuick([&] { EXPECT_EQ(writer.close(), 0); });
        EXPECT_TRUE(isThere());
    }
    expectQuick([&] { FsResultSetReader_OnFile(name.c_str()).moveFirst(); });
    EXPECT_EQ(isThere(), !isFile) << "read, as it is a file";
}

TEST_P(Planted, ListFile) {
    const std::string name = host.place.path("tav_cmd_file_1");
    plant(name);
    expectQuick([&] { EXPECT_FALSE(writeListFile(host.tree.path().c_str(), name.c_str())); });
    expectUnharmed();
}

// In the cache's own directory, as left by an old cache or a careless administrator.
TEST_P(Planted, MarkCounterAndChecksums) {
    for (const char* suffix : {".cuflag", ".counter", ".sums", ".sums_new", ".undo"}) {
        ASSERT_EQ(host.ask().status, 0);
        const std::string name =
            toMultibyte(host.cacheDirectory() + L"/" + fsCacheTableNames(false).directories) +
            suffix;
        fs::remove(name);
        plant(name);
        expectQuick([&] {
            const Answer answer = host.ask(kAllOld);
            if (answer.status != 0) return;
            EXPECT_EQ(answer.paths, host.truth()) << suffix;
        });
        expectUnharmed();
        fs::remove(name);
        host.forget();
    }
}

INSTANTIATE_TEST_SUITE_P(By, Planted, testing::ValuesIn(kPlants),
                         [](const auto& form) { return form.param.name; });

// ---- Standard descriptors ------------------------------------------------------

// A host's output must not land in our files, whichever of its descriptors are closed.
TEST(StandardDescriptors, MayBeClosed) {
    FaultHost host;
    host.plant(3, 3);
    for (unsigned closed = 1; closed < 8; ++closed) {
        const auto isClosed = [closed](int fd) { return (closed & 1U << fd) != 0; };
        host.forget();
        const int outcome = inChild([&] {
            for (int fd = 0; fd < 3; ++fd)
                if (isClosed(fd)) ::close(fd);
            int status = -1;
            const auto reader = host.askForFile(status);
            for (int fd = 0; fd < 3; ++fd)
                if (isClosed(fd) && ::fcntl(fd, F_GETFD) >= 0) return 2;
            return status == 0 && FaultHost::pathsOf(*reader).size() == host.truth().size() ? 0 : 1;
        });
        EXPECT_EQ(outcome, 0) << closed;
    }
}

// ---- Privileges ----------------------------------------------------------------

class Privileges : public testing::Test {
protected:
    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
        for (const std::string& path : {host.tree.path(), host.place.path()})
            fs::permissions(path, fs::perms(0755));
        host.plant(2, 2);
        for (const char* directory : {"locks", "temporary"})
            fs::permissions(host.place.path(directory), fs::perms(01777));
    }
    FaultHost host{fs::temp_directory_path()};
};

TEST_F(Privileges, ACacheIsItsUsersAlone) {
    const mode_t old = ::umask(0);
    int status = -1;
    const auto reader = host.askForFile(status);
    ASSERT_EQ(status, 0);
    ::umask(old);
    const std::vector<std::string> cache = FaultHost::walkFresh(host.place.path("cache"));
    const std::vector<std::string> left = host.leftovers();
    ASSERT_GT(cache.size(), 10U);
    ASSERT_EQ(left.size(), 1U) << "the results";
    EXPECT_EQ(inChild([&] {
                  if (!becomeNobody()) return 9;
                  for (const auto* list : {&cache, &left})
                      for (const std::string& path : *list)
                          if (::open(path.c_str(), O_RDONLY) >= 0 || errno != EACCES) return 1;
                  const Answer answer = host.ask();
                  if (answer.status == 0 || !answer.paths.empty()) return 2;
                  const auto names = fsCacheTableNames(false);
                  FS_Cache directly(names.directories.c_str(), names.files.c_str(),
                                    host.cacheDirectory().c_str(), false, false, true);
                  return directly.create(0, FS_CACHE_OPEN_ALWAYS) == FS_CACHE_FAILURE ? 0 : 3;
              }),
              0);
    EXPECT_EQ(host.ask().paths, host.truth());
}

// A cache directory that others can open still belongs to its user.
TEST_F(Privileges, NobodyElseHoldsTheLock) {
    ASSERT_EQ(host.ask().status, 0);
    fs::permissions(host.cache, fs::perms(0755));
    std::array<int, 2> done{};
    ASSERT_EQ(::pipe(done.data()), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        char word = becomeNobody() ? 'n' : 'r';
        const int directory = ::open(host.cache.c_str(), O_RDONLY | O_DIRECTORY);
        const int lock = ::open((host.cache + "/fscanner.lock").c_str(), O_RDONLY);
        if (::flock(directory, LOCK_EX) != 0 || lock >= 0) word = 'f';
        if (::write(done[1], &word, 1) == 1) ::pause();
        ::_exit(0);
    }
    char word = 0;
    ASSERT_EQ(::read(done[0], &word, 1), 1);
    EXPECT_EQ(word, 'n');
    const Answer answer = host.ask();
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.walked, 0U);
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    for (const int end : done) ::close(end);
}

}  // namespace
}  // namespace fscanner
