// A `file` that is kept running for many directories gives the same answers as one that is started
// for each, whatever happens to it.

#include <sched.h>
#include <sys/prctl.h>

#include <csignal>
#include <map>
#include <optional>
#include <thread>
#include <vector>

#include "filetype_fixture.h"
#include "fscanner/platform/directory.h"
#include "support/child_process.h"

namespace fscanner {
namespace {

namespace fs = std::filesystem;

class RunningFileTest : public FileTypeTest {
protected:
    RunningFileTest() { fileProgram().mayKeepRunning = true; }

    void writeDirectories(int count) {
        for (int i = 0; i < count; ++i) {
            fs::create_directory(path(std::to_string(i)));
            for (const char* name : {"a", "b", "c"}) write(std::to_string(i) + "/" + name);
        }
    }
    /// Says "type of ./NAME", for the lines of its input as `answer` would: that is
    /// shell that knows the line as $line and the name as $name. One that is started for a
    /// directory dies on the file "deadly".
    void standInThatReads(const std::string& answer) {
        standIn(
            "case \"$*\" in *'-f -') echo $$ > \"$0.pid\"\n"
            "  while IFS= read -r line; do name=${line##*/}; " +
            answer +
            "; done;;\n"
            "*) for a; do case $a in ./deadly) kill -9 $$;; ./*) printf 'type of %s\\0' \"$a\";; "
            "esac; done;;\n"
            "esac\n");
    }
    pid_t runningProgram() const { return std::stoi(readWholeFile(tools_ / "file.pid")); }
};

constexpr const char* kAnswerRightly =
    "case $name in .) printf 'directory\\0';; *) printf 'type of ./%s\\0' \"$name\";; esac";

TEST_F(RunningFileTest, AnswersAsOneThatIsStartedForEachDirectory) {
    const auto directories = {"first", "plain", "odd names", "line\nbreak", "closed", "kinds"};
    for (const char* directory : directories) {
        fs::create_directory(path(directory));
        write(std::string(directory) + "/a");
    }
    for (const char* name : {"-", "--help", " ", "a: ELF", "%s", "`$(id)`", "\xff\xfe", "\t", "*"})
        write(std::string("odd names/") + name, "%PDF-1.4\n");
    write("odd names/" + std::string(255, 'n'));
    write("line\nbreak/two\nlines", "#!/bin/sh\n");
    ASSERT_EQ(::mkfifo(path("kinds/fifo").c_str(), 0600), 0);
    ASSERT_EQ(::mkfifo(path("kinds/secret").c_str(), 0), 0);
    fs::create_symlink("absent", path("kinds/broken"));
    fs::create_symlink("../plain/a", path("kinds/link"));
    fs::create_symlink("loop", path("kinds/loop"));
    write("kinds/empty", "");
    write("kinds/unreadable");
    ::chmod(path("kinds/unreadable").c_str(), 0);
    ::chmod(path("closed").c_str(), 0744);
    ::chmod(files_.path().c_str(), 0755);

    const auto answers = [&](bool mayKeepRunning) {
        std::map<std::string, std::string> types;
        fileProgram().mayKeepRunning = mayKeepRunning;
        for (const char* directory : directories)
            for (const auto& entry : fs::directory_iterator(path(directory)))
                types[entry.path()] = typeOfPath(entry.path(), &FileTypeChecker::getFileTypeEx);
        return types;
    };
    countRuns();
    const auto expected = answers(false);
    EXPECT_EQ(runs(), 6);
    EXPECT_EQ(answers(true), expected);
    EXPECT_EQ(runs(), 6 + 4) << "the first directory, that with a line break, those around it";
    EXPECT_EQ(expected.at(path("odd names/-")), "PDF document, version 1.4");

    // Root can read everything.
    EXPECT_EQ(inChild([&] {
                  if (::geteuid() == 0 && !becomeNobody()) return 1;
                  // Other processes may read our descriptors again.
                  if (::prctl(PR_SET_DUMPABLE, 1) != 0) return 1;
                  fileProgram().path = saved_.path;
                  const auto plain = answers(false);
                  return plain == answers(true) && plain != expected ? 0 : 2;
              }),
              0);
}

TEST_F(RunningFileTest, ComplainsOfAFileByItsName) {
    const Descriptor directory = openDirectoryWithoutLinks(files_.path().c_str());
    const std::vector<std::string> names{"absent"};
    RunningFile running;
    const auto plain = describeFiles(directory.get(), names, &running);
    EXPECT_EQ(plain[0], "cannot open `./absent' (No such file or directory)");
    EXPECT_EQ(describeFiles(directory.get(), names, &running), plain);
    EXPECT_TRUE(hasChildren());
}

TEST_F(RunningFileTest, ThatMisbehavesIsReplacedByOneForEachDirectory) {
    const struct {
        const char* name;
        std::string answer;
        std::ptrdiff_t runs;
    } cases[] = {
        {"behaves", kAnswerRightly, 2},
        {"ends at once", "exit 1", 6},
        {"says nothing", ":", 6},
        {"waits for the end", "cat > /dev/null; printf 'directory\\0'", 6},
        {"cannot reach the directory", "printf \"cannot open '%s'\\0\" \"$line\"", 6},
        {"falls out of step at the third question",
         std::string("[ \"$name\" != . ] || n=$((n+1)); ") +
             "[ \"$n$name\" != 3. ] || printf 'more\\0'; " + kAnswerRightly,
         5},
    };
    fileProgram().timePerRun = std::chrono::milliseconds(1500);
    writeDirectories(5);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        standInThatReads(c.answer);
        {
            FileTypeChecker checker;
            for (int i = 0; i < 5; ++i)
                for (const char* name : {"a", "b", "c"}) {
                    wchar_t* info = nullptr;
                    const std::wstring whole = toWide(path(std::to_string(i)) + "/" + name);
                    ASSERT_TRUE(checker.getFileTypeEx(whole.c_str(), &info)) << i << name;
                    const HeapText line(info);
                    EXPECT_EQ(std::wstring(info), whole + L": type of ./" + toWide(name));
                }
        }
        EXPECT_EQ(runs(), c.runs);
        EXPECT_FALSE(hasChildren());
    }
}

TEST_F(RunningFileTest, ThatDiesOrHangsOnAFileCostsWhatItWouldHaveCost) {
    writeDirectories(5);
    for (const char* name : {"1/deadly", "2/final", "3/slow"}) write(name);
    standInThatReads(std::string("case $name in deadly|final) kill -9 $$;; slow) sleep 1000;; ") +
                     "*) " + kAnswerRightly + ";; esac");
    fileProgram().timePerRun = std::chrono::milliseconds(1500);
    EXPECT_EQ(typeOf("0/a"), "type of ./a");
    EXPECT_EQ(typeOf("1/c"), "type of ./c");
    EXPECT_EQ(typeOf("1/deadly"), "unknown");
    EXPECT_EQ(typeOf("1/a"), "type of ./a");
    EXPECT_EQ(typeOf("2/final"), "type of ./final") << "another does not die on it";
    EXPECT_EQ(typeOf("2/a"), "type of ./a");
    EXPECT_EQ(typeOf("3/slow"), "unknown");
    EXPECT_EQ(typeOf("3/a"), "type of ./a");
    EXPECT_EQ(typeOf("4/a"), "type of ./a");
}

TEST_F(RunningFileTest, ReachesTheDescriptorsOfAThreadThatSharesNone) {
    fs::create_directory(path("threads"));
    fs::create_directory(path("others"));
    write("threads/a", "%PDF-1.4\n");
    write("others/a", "#!/bin/sh\n");
    const std::vector<std::string> names{"a"};
    std::vector<std::string> answers;
    // In other threads the descriptor numbers that the thread will use stay other directories.
    std::vector<Descriptor> others;
    for (int i = 0; i < 4; ++i) others.push_back(openDirectoryWithoutLinks(path("others").c_str()));
    std::thread([&] {
        if (::unshare(CLONE_FILES) != 0) return;
        for (const Descriptor& other : others) ::close(other.get());
        const Descriptor directory = openDirectoryWithoutLinks(path("threads").c_str());
        RunningFile running;
        for (int i = 0; i < 3; ++i)
            answers.push_back(describeFiles(directory.get(), names, &running)[0]);
    }).join();
    if (answers.empty()) GTEST_SKIP() << "no descriptors of its own for a thread here";
    EXPECT_EQ(answers, std::vector<std::string>(3, "PDF document, version 1.4"));
}

TEST_F(RunningFileTest, ReadsNothingThatItsHostMayNotReadAnyMore) {
    write("secret", "%PDF-1.4\n");
    ::chmod(path("secret").c_str(), 0600);
    ::chmod(files_.path().c_str(), 0755);
    EXPECT_EQ(inChild([&] {
                  const Descriptor directory = openDirectoryWithoutLinks(files_.path().c_str());
                  const std::vector<std::string> names{"secret"};
                  RunningFile running;
                  for (int i = 0; i < 2; ++i) describeFiles(directory.get(), names, &running);
                  if (::geteuid() == 0 && !becomeNobody()) return 1;
                  const auto plain = describeFiles(directory.get(), names);
                  return describeFiles(directory.get(), names, &running) == plain ? 0 : 2;
              }),
              0);
}

TEST_F(RunningFileTest, MayBeKilledBetweenQuestions) {
    writeDirectories(3);
    standInThatReads(kAnswerRightly);
    EXPECT_EQ(inChild([&] {
                  ::signal(SIGPIPE, SIG_DFL);
                  typeOf("0/a");
                  typeOf("1/a");
                  ::kill(runningProgram(), SIGKILL);
                  ::waitid(P_PID, static_cast<id_t>(runningProgram()), nullptr, WEXITED | WNOWAIT);
                  return typeOf("2/b") == "type of ./b" ? 0 : 1;
              }),
              0);
}

TEST_F(RunningFileTest, IsNotSharedWithAProcessThatIsForked) {
    writeDirectories(5);
    standInThatReads(kAnswerRightly);
    EXPECT_EQ(typeOf("0/a"), "type of ./a");
    EXPECT_EQ(typeOf("1/a"), "type of ./a");
    const pid_t ours = runningProgram();
    EXPECT_EQ(inChild([&] {
                  if (typeOf("2/b") != "type of ./b") return 1;
                  return runningProgram() != ours ? 0 : 2;
              }),
              0);
    EXPECT_EQ(::kill(ours, 0), 0) << "the fork ended what was not its own";
    EXPECT_EQ(typeOf("3/c"), "type of ./c");
    EXPECT_EQ(runs(), 3);
}

}  // namespace
}  // namespace fscanner
