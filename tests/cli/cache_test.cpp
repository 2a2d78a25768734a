// Answers from the cache: how old they may be, the messages about them, and what signals
// and lost readers leave behind.

#include <sys/stat.h>

#include <csignal>
#include <ctime>
#include <functional>
#include <memory>
#include <set>
#include <thread>

#include "fscanner/engine/cache.h"
#include "program_run.h"

namespace fscan::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class CacheTest : public FscanTest {
protected:
    CacheTest() {
        add("d/a", "1");
        add("d/sub/b", "22");
    }

    RunSettings cached() const {
        return {.environment = {{"XDG_CACHE_HOME", home_.path()}}, .cached = true};
    }
    RunResult run(const Arguments& arguments) const { return FscanTest::run(arguments, cached()); }
    RunResult shell(const std::string& command) const {
        return FscanTest::shell(command, cached());
    }
    /// The paths found by a run that prints no messages and does not fail.
    Arguments found(const Arguments& arguments) const {
        const RunResult result = run(arguments);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.status, 0);
        return records(result.out);
    }
    std::string status() const { return run({"--cache-status"}).out; }
    /// The cache's directory, once there is one.
    std::filesystem::path cacheDirectory() const {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(home_.path()))
            if (entry.path().filename() == "CACHEDIR.TAG") return entry.path().parent_path();
        return {};
    }
    /// The file of the cache with that ending.
    std::filesystem::path file(const std::string& ending) const {
        for (const auto& entry : std::filesystem::directory_iterator(cacheDirectory()))
            if (entry.path().native().ends_with(ending)) return entry.path();
        return {};
    }
    /// More output than fits in a pipe, in a cache.
    void addManyFiles() const {
        for (int i = 0; i < 2000; ++i) add("d/sub/" + std::string(200, 'n') + std::to_string(i));
    }

    fscanner::TemporaryDirectory home_;
};

/// Waits until a cached tree is not 0 seconds old any more.
void waitForNextSecond() {
    const std::time_t now = std::time(nullptr);
    while (std::time(nullptr) == now) std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

TEST_F(CacheTest, TheSecondSearchIsAnsweredFromTheCacheWhileItIsYoung) {
    EXPECT_THAT(found({"d/"}), ElementsAre("d/a", "d/sub/b"));
    add("d/later");
    EXPECT_THAT(found({"d/", "--max-age", "1s"}), ElementsAre("d/a", "d/sub/b"));
    EXPECT_THAT(found({"d/", "--no-cache"}), ElementsAre("d/a", "d/later", "d/sub/b"));
    EXPECT_THAT(found({"d/", "--no-recurse"}), ElementsAre("d/a", "d/later"));
    EXPECT_THAT(found({"d/", "--max-age", "1d"}), ElementsAre("d/a", "d/sub/b"));
    EXPECT_THAT(found({"d/", "--fresh"}), ElementsAre("d/a", "d/later", "d/sub/b"));
    // Within the same second, too.
    add("d/x");
    EXPECT_THAT(found({"d/", "--fresh", "-n", "x"}), ElementsAre("d/x"));
    std::filesystem::remove(tree_ / "d/x");
    EXPECT_EQ(run({"d/", "--max-age", "0s", "-n", "x"}).status, 1);
    std::filesystem::remove(tree_ / "d/later");
    const RunResult gone = run({"d/", "-l", "-n", "later", "--max-age", "1d"});
    EXPECT_EQ(gone.out, "");
    EXPECT_EQ(gone.err, "fscan: 1 file is gone since the search found it\n");
    EXPECT_THAT(found({"d/", "--max-age", "0s"}), ElementsAre("d/a", "d/sub/b"));
}

// Without an option an answer is as of now.
TEST_F(CacheTest, WhatWasThereBeforeTheSearchIsFound) {
    EXPECT_THAT(run({"d/", "--stats"}).err,
                testing::ContainsRegex(
                    "matches:  2\nwalked:   2 files, 2 directories\n(.*\n)*from:     a scan\n"));
    for (int i = 0; i < 12; ++i) {
        const std::string name = "n" + std::to_string(i);
        const std::string path = (i % 2 == 0 ? "d/" : "d/sub/") + name;
        add(path);
        EXPECT_THAT(found({"d/", "-n", name}), ElementsAre(path));
        if (i % 3 == 0) continue;
        std::filesystem::remove(tree_ / path);
        EXPECT_EQ(run({"d/", "-n", name}).status, 1);
    }
    const RunResult told = run({"d/", "-c", "--stats", "--summary", "json"});
    EXPECT_THAT(told.err, HasSubstr("checked:  2 directories, "));
    EXPECT_THAT(told.err, HasSubstr("from:     the cache (checked)"));
    EXPECT_THAT(told.err, testing::ContainsRegex("\"checked\":\\{\"directories\":2,.*"));
    EXPECT_THAT(run({"d/", "--larger", "1k", "--stats"}).err,
                testing::ContainsRegex("from:     the cache \\(checked; sizes are .* old\\)"));
    EXPECT_THAT(run({"d/", "--max-age", "1d", "--summary", "json"}).err,
                HasSubstr("\"checked\":null"));
}

TEST_F(CacheTest, ExplainsWithoutSearching) {
    const std::string path = "path:      " + std::filesystem::canonical(tree_ / "d").string();
    const RunResult before = run({"d/", "--explain", "-n", "a"});
    EXPECT_EQ(before.status, 0);
    EXPECT_THAT(before.out, HasSubstr(path + "\n"));
    EXPECT_THAT(before.out, HasSubstr("scanned into the cache, which does not have it\n"));
    EXPECT_THAT(before.out, HasSubstr("index:     FILENAME = a\n"));
    EXPECT_TRUE(std::filesystem::is_empty(home_.path()));

    found({"d/"});
    const RunResult young = run({"d/", "--explain", "-x", "d/sub", "-n", "*a"});
    EXPECT_THAT(young.out, HasSubstr("answer:    from the cache, "));
    EXPECT_THAT(young.out, HasSubstr("/d/sub\n"));
    EXPECT_THAT(young.out, HasSubstr("index:     none: "));
    waitForNextSecond();
    EXPECT_THAT(run({"d/", "--explain", "--fresh"}).out, HasSubstr("0 s at most\n"));
    EXPECT_THAT(run({"d/", "--explain", "--no-cache"}).out,
                HasSubstr("answer:    scanned: without the cache\n"));
    EXPECT_THAT(status(), HasSubstr("state:      good\n"));
}

TEST_F(CacheTest, StatusCompactingAndClearing) {
    for (const char* task :
         {"--cache-status", "--cache-check", "--cache-compact", "--cache-clear"}) {
        const RunResult none = run({task});
        EXPECT_EQ(none.status, 1) << task;
        EXPECT_THAT(none.out, HasSubstr("no cache\n"));
    }
    found({"d/"});
    EXPECT_THAT(status(), testing::ContainsRegex("  [0-9]+ s +2 +2  /.*/d\n"));
    EXPECT_EQ(run({"--cache-compact"}).status, 0);
    EXPECT_THAT(found({"d/"}), ElementsAre("d/a", "d/sub/b"));

    const std::filesystem::path directory = cacheDirectory();
    for (const char* name : {"mine", "files.dat", "files.mine.dat"})
        fscanner::writeWholeFile(directory / name, "");
    // Files of a rebuild that was killed.
    const std::string table = file(".counter").replace_extension();
    for (const char* end : {"_cpt.dat", "_cpt.pxx", "_ID_cpt.idx", "_cpt.counter", ".sums_new"})
        fscanner::writeWholeFile(table + end, "");
    add("d/later");
    EXPECT_EQ(run({"--cache-clear"}).status, 0);
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        left.push_back(entry.path().filename());
    EXPECT_THAT(left, testing::UnorderedElementsAre("mine", "files.dat", "files.mine.dat"));
    // The rest is not a cache any more.
    const RunResult without = run({"d/"});
    EXPECT_THAT(without.err, HasSubstr("is no cache directory: it holds other things, such as m"));
    EXPECT_THAT(records(without.out), ElementsAre("d/a", "d/later", "d/sub/b"));
    std::filesystem::remove(directory / "mine");
    EXPECT_THAT(found({"d/"}), ElementsAre("d/a", "d/later", "d/sub/b"));
}

TEST_F(CacheTest, CheckingFindsWhatIsNotAsItWasWritten) {
    const auto change = [&](const std::string& ending, std::size_t at) {
        std::string bytes = fscanner::readWholeFile(file(ending));
        bytes.at(at) = static_cast<char>(bytes.at(at) + 1);
        fscanner::writeWholeFile(file(ending), bytes);
    };
    const struct {
        const char* what;
        std::function<void()> damage;
        const char* problem;
    } table[] = {
        {"a byte that no search needs", [&] { change("_PARENTID.idx", 100000); },
         "_PARENTID.idx: bytes 98304 to 102399 are not what was written\n"},
        {"a letter", [&] { change("_FILENAME.idx", 5); }, "_FILENAME.idx: bytes 0 to 4095 are"},
        {"a longer file", [&] { fscanner::writeWholeFile(file(".counter"), "12345"); },
         ".counter: has 5 bytes instead of 4\n"},
        {"no file", [&] { std::filesystem::remove(file(".unread")); }, ".unread: missing\n"},
        {"no checksums", [&] { std::filesystem::remove(file(".sums")); },
         ".sums: missing or damaged\n"},
        {"a mark", [&] { fscanner::writeWholeFile(file(".sums").replace_extension("cuflag"), ""); },
         "problem:    it is marked: its last use was interrupted, or found it damaged\n"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        EXPECT_THAT(found({"d/"}), ElementsAre("d/a", "d/sub/b"));
        const RunResult good = run({"--cache-check"});
        EXPECT_EQ(good.status, 0);
        EXPECT_THAT(good.out, testing::ContainsRegex("checked:    14 files, [0-9.]+M\n"));
        EXPECT_THAT(good.out, HasSubstr("\nstate:      good\n"));
        row.damage();
        // Damage that was found is marked.
        for (const char* problem :
             {row.problem,
              "problem:    it is marked: its last use was interrupted, or found it damaged\n"}) {
            const RunResult bad = run({"--cache-check"});
            EXPECT_EQ(bad.status, 4);
            EXPECT_THAT(bad.out, HasSubstr(problem));
            EXPECT_THAT(bad.out, HasSubstr("state:      damaged: the next search makes it anew\n"));
        }
        EXPECT_THAT(status(), HasSubstr("state:      its last use was interrupted"));
        for (const char* task : {"--cache-compact", "--cache-forget=d"}) {
            const RunResult refused = run({task});
            EXPECT_EQ(refused.status, 4) << task;
            EXPECT_THAT(refused.err, HasSubstr("; the next search makes it anew\n")) << task;
        }
    }
    EXPECT_THAT(found({"d/"}), ElementsAre("d/a", "d/sub/b"));
}

TEST_F(CacheTest, OneTreeIsForgotten) {
    EXPECT_EQ(run({"--cache-forget", "d/"}).status, 1);
    add("gone/g");
    std::filesystem::create_directory_symlink("d", tree_ / "way");
    for (const char* path : {"d/", "gone"}) found({path});
    std::filesystem::remove_all(tree_ / "gone");
    for (const char* path : {"gone", "./way/."}) {
        EXPECT_THAT(run({"--cache-forget", path}).status, 0) << path;
        const RunResult again = run({"--cache-forget", path});
        EXPECT_EQ(again.status, 1);
        EXPECT_EQ(again.err, "fscan: " + std::string(path) + ": not in the cache\n");
    }
    EXPECT_THAT(status(), HasSubstr("state:      good"));
}

// Nothing is written there, and nothing is deleted.
TEST_F(CacheTest, ADirectoryOfOthersIsLeftAlone) {
    add("home/letters");
    add("home/files.x.dat", "its");
    for (const std::string what : {"d/", "--cache-status", "--cache-compact", "--cache-clear"}) {
        const RunResult refused = run({"--cache-dir", "home/", what});
        EXPECT_EQ(refused.status, what == "d/" ? 0 : 4) << what;
        EXPECT_THAT(refused.err, HasSubstr(": the cache directory cannot be used: ")) << what;
    }
    EXPECT_THAT(found({"--no-cache", "home/"}), ElementsAre("home/files.x.dat", "home/letters"));
    EXPECT_EQ(fscanner::readWholeFile(tree_ / "home/files.x.dat"), "its");
}

/// If the cache cannot be used, the search does without it, and says so once.
TEST_F(CacheTest, WhatCannotBeACacheIsDoneWithout) {
    std::filesystem::create_directory(tree_ / "open");
    chmod((tree_ / "open").c_str(), 0777);
    for (const auto& [directory, why] : {std::pair("d/a", "/d/a is no directory"),
                                         {"d/a/sub", "/d/a is no directory"},
                                         {"open", "/open can be written by others (owner "}}) {
        const RunResult bad = run({"d/", "d/sub", "--cache-dir", directory});
        EXPECT_EQ(bad.status, 0) << directory;
        EXPECT_THAT(records(bad.out), ElementsAre("d/a", "d/sub/b"));
        EXPECT_EQ(records(bad.err).size(), 1U) << bad.err;
        EXPECT_THAT(bad.err, testing::StartsWith("fscan: note: "));
        EXPECT_THAT(bad.err, HasSubstr(": the cache directory cannot be used: "));
        EXPECT_THAT(bad.err, HasSubstr(why));
        EXPECT_THAT(bad.err, testing::EndsWith("; searching without it\n"));
        EXPECT_EQ(run({"d/", "-q", "--cache-dir", directory}).err, "");
    }
    EXPECT_THAT(run({"d/", "--cache-dir", "open"}).err, HasSubstr(", mode 0777);"));
    const RunResult fallback = shell("XDG_CACHE_HOME=$PWD/d/a exec \"$0\" d/");
    EXPECT_EQ(fallback.status, 0);
    EXPECT_EQ(records(fallback.err).size(), 1u);
    EXPECT_THAT(fallback.err, HasSubstr("no place for a cache: "));
    EXPECT_THAT(fallback.err, HasSubstr("/d/a is no directory; searching without one\n"));
    EXPECT_THAT(records(fallback.out), ElementsAre("d/a", "d/sub/b"));
}

/// Disks on which a cache cannot be stored, or only in part.
TEST_F(CacheTest, ADiskThatTakesNoCacheIsDoneWithout) {
    addManyFiles();
    std::filesystem::create_directory(tree_ / "c");
    const struct {
        const char* name;
        const char* mount;  ///< of the directory "c"
        const char* reason;
    } disks[] = {
        {"read-only", "size=16m,mode=700 none c && mount -o remount,ro c",
         "neither locked nor opened: its file system is read-only; "},
        {"full", "size=16m,mode=700 none c && head -c 32m /dev/zero > c/files.ballast",
         "neither locked nor opened (0 left on its disk); "},
        {"without names", "nr_inodes=4,mode=700 none c",
         "neither locked nor opened: its disk takes no more files; "},
        {"too small for the indexes", "size=1m,mode=700 none c", " left on its disk); "},
        {"too small for the tree", "size=3m,mode=700 none c", ": the cache failed ("},
    };
    const Arguments right = records(run({"d/", "--no-cache"}).out);
    for (const auto& disk : disks) {
        const RunResult result =
            shell("exec unshare -m sh -c '{ mount -t tmpfs -o " + std::string(disk.mount) +
                  "; } 2> /dev/null; mountpoint -q c || exit 77; exec \"$0\" d/ --strict "
                  "--cache-dir c' \"$0\"");
        if (result.status == 77 || result.status == 1) GTEST_SKIP() << "nothing can be mounted";
        EXPECT_EQ(result.status, 0) << disk.name;
        EXPECT_EQ(records(result.out), right) << disk.name;
        EXPECT_EQ(records(result.err).size(), 1U) << result.err;
        EXPECT_THAT(result.err, HasSubstr(disk.reason)) << disk.name;
        EXPECT_THAT(result.err, testing::EndsWith("; searching without it\n"));
    }
}

// ---- Others that use the cache -------------------------------------------------

class BusyCacheTest : public CacheTest {
protected:
    BusyCacheTest() {
        found({"d/"});
        other_ = std::make_unique<fscanner::FS_Cache>(
            L"directories.x", L"files.x", cacheDirectory().wstring().c_str(), false, false, true);
    }
    std::string note() const {
        return "fscan: note: " + cacheDirectory().string() +
               ": another process is using the cache; searching without it (--wait waits for "
               "it)\n";
    }

    std::unique_ptr<fscanner::FS_Cache> other_;
};

TEST_F(BusyCacheTest, IsDoneWithout) {
    add("d/later");
    ASSERT_EQ(other_->lock(1000), 0);
    const RunResult without = run({"d/", "d/sub", "--strict"});
    EXPECT_EQ(without.status, 0);
    EXPECT_THAT(records(without.out), ElementsAre("d/a", "d/later", "d/sub/b"));
    EXPECT_EQ(without.err, note());
    EXPECT_EQ(run({"d/", "-q", "-n", "later"}).err, "");
    const RunResult nothing = run({"d/", "-n", "nowhere", "-q", "--summary", "json"});
    EXPECT_EQ(nothing.status, 1);
    EXPECT_THAT(nothing.err, HasSubstr("\"complete\":true,\"status\":1,"));
    EXPECT_THAT(nothing.err, HasSubstr("\"cached\":[]"));
    other_->unlock();
    EXPECT_THAT(found({"d/", "--max-age", "1d"}), ElementsAre("d/a", "d/sub/b"));
}

TEST_F(BusyCacheTest, IsReadBesideReaders) {
    add("d/later");
    ASSERT_EQ(other_->lockShared(1000), 0);
    EXPECT_THAT(found({"d/", "--max-age", "1d"}), ElementsAre("d/a", "d/sub/b"));
    EXPECT_THAT(run({"d/", "--explain"}).out, HasSubstr("from the cache, "));
    const RunResult fresh = run({"d/", "--fresh"});
    EXPECT_THAT(records(fresh.out), ElementsAre("d/a", "d/later", "d/sub/b"));
    EXPECT_EQ(fresh.err, note());
}

TEST_F(BusyCacheTest, IsWaitedForWithWait) {
    add("d/later");
    for (const char* option : {"--max-age=1d", "--fresh"}) {
        ASSERT_EQ(other_->lock(1000), 0);
        std::thread release([this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(1500));
            other_->unlock();
        });
        const RunResult waited = run({"d/", "--wait", "-q", option});
        release.join();
        EXPECT_EQ(waited.err, "");
        EXPECT_EQ(records(waited.out).size(), option == std::string("--fresh") ? 3U : 2U);
    }
}

/// A terminal shows progress, and a signal does not wait.
TEST_F(BusyCacheTest, IsWaitedForOnlySoLong) {
    ASSERT_EQ(other_->lock(1000), 0);
    const RunResult refused = run({"--cache-status"});
    EXPECT_EQ(refused.status, 4);
    EXPECT_THAT(refused.err, HasSubstr("another process is using the cache\n"));
    for (const char* task : {"-c --wait", "--cache-status"}) {
        RunSettings terminal = cached();
        terminal.environment["TERM"] = "xterm";
        terminal.watched = true;
        const RunResult ended =
            FscanTest::shell(std::string("exec timeout -s INT 1 \"$0\" d/ ") + task, terminal);
        EXPECT_EQ(ended.status, 124) << task;
        EXPECT_THAT(ended.err, HasSubstr("waiting for the cache: another process uses it, 0."));
        EXPECT_THAT(ended.err, testing::Not(HasSubstr(", 2."))) << task;
    }
    // If it is not a terminal, the message is printed once.
    for (const auto& [quiet, waits] : {std::pair("", 1), {" -q", 0}}) {
        const RunResult log =
            shell("exec timeout -s INT 2.5 \"$0\" d/ --cache-status" + std::string(quiet));
        EXPECT_EQ(log.status, 124);
        const std::string told = "fscan: waiting for the cache: another process uses it\n";
        EXPECT_EQ(log.err, waits == 1 ? told : "");
    }
    other_->unlock();
    EXPECT_THAT(status(), HasSubstr("state:      good"));
}

// ---- Slow readers --------------------------------------------------------------

class SlowReaderTest : public CacheTest {
protected:
    SlowReaderTest() {
        addManyFiles();
        found({"d/"});
    }
    /// Its output is not read until another search has built the tree anew.
    void expectNothingHeld(const std::string& command, std::size_t size) const {
        SCOPED_TRACE(command);
        const RunResult slow = shell(
            command +
            " | { read -r first; timeout 100 \"$0\" d/ --fresh -c >&2; echo \"$first\"; cat; }");
        EXPECT_EQ(slow.err, "2002\n");
        const Arguments lines = records(slow.out);
        ASSERT_EQ(lines.size(), 2002U);
        EXPECT_EQ(std::set(lines.begin(), lines.end()).size(), 2002U);
        EXPECT_GT(slow.out.size(), size);
    }

    /// A format of 25 times the path.
    const std::string wide_ = [] {
        std::string form;
        for (int i = 0; i < 25; ++i) form += "{path}";
        return form;
    }();
};

/// As long as the output fits in memory, beyond that, and where no descriptor of our own can
/// be had.
TEST_F(SlowReaderTest, HoldsNoLock) {
    expectNothingHeld("\"$0\" d/", 400000);
    expectNothingHeld("\"$0\" d/ --format '" + wide_ + "'", 10000000);
}

/// A socket, which has no other descriptor.
TEST_F(SlowReaderTest, HoldsNoLockOnASocket) {
    const RunResult result = FscanTest::shell(
        "exec python3 -c '\n"
        "import socket, subprocess, sys\n"
        "mine, its = socket.socketpair()\n"
        "slow = subprocess.Popen([sys.argv[1], \"d/\"], stdout=its)\n"
        "its.close()\n"
        "text = mine.recv(1)\n"
        "fresh = subprocess.run([sys.argv[1], \"d/\", \"--fresh\", \"-c\"], timeout=100)\n"
        "text += mine.makefile(\"rb\").read()\n"
        "print(len(set(text.split())), slow.wait())' \"$0\"",
        cached());
    EXPECT_EQ(result.out, "2002\n2002 0\n");
    EXPECT_EQ(result.err, "");
}

/// A stopped terminal does not make other searches wait.
TEST_F(SlowReaderTest, HoldsNoLockOnATerminal) {
    RunSettings terminal = cached();
    terminal.to = Stdout::terminal;
    terminal.pause = std::chrono::milliseconds(1500);
    std::thread other([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        const RunResult fresh = run({"d/", "--fresh", "-c"});
        EXPECT_EQ(fresh.out + fresh.err, "2002\n");
    });
    const RunResult slow = FscanTest::run({"d/"}, terminal);
    other.join();
    EXPECT_EQ(records(slow.out).size(), 2002U);
}

/// If the rest of the output cannot be kept anywhere, it is waited for.
TEST_F(SlowReaderTest, GetsAllWhereNothingCanBeKept) {
    const RunResult slow = shell("(trap '' XFSZ; ulimit -f 100; exec \"$0\" d/ --format '" + wide_ +
                                 "') | { sleep 0.5; sort -u | wc -lc; }");
    const RunResult direct =
        shell("\"$0\" d/ --no-cache --format '" + wide_ + "' | sort -u | wc -lc");
    EXPECT_EQ(slow.out, direct.out);
    EXPECT_EQ(slow.err, "");
}

TEST_F(CacheTest, ALostReaderDoesNotCostTheCache) {
    addManyFiles();
    EXPECT_EQ(found({"d/"}).size(), 2002u);
    const RunResult head = shell("{ \"$0\" d/; echo $? >&2; } | head -n 1");
    EXPECT_EQ(head.err, std::to_string(128 + SIGPIPE) + "\n");
    EXPECT_THAT(status(), HasSubstr("state:      good"));
    // The reader is slow: the signal comes while standard output is full.
    const RunResult slow = shell(
        "{ timeout --foreground -s INT 0.5 \"$0\" d/; echo $? >&2; } | { sleep 2; cat > /dev/null; "
        "}");
    EXPECT_EQ(slow.err, "124\n");
    EXPECT_THAT(status(), HasSubstr("state:      good"));
}

}  // namespace
}  // namespace fscan::test
