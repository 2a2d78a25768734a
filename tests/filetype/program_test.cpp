// A `file` that is missing, hangs, floods, dies or prints rubbish, and hosts with
// closed descriptors and unusual signals.

#include <fcntl.h>
#include <poll.h>
#include <sys/ptrace.h>
#include <sys/time.h>

#include <csignal>
#include <vector>

#include "filetype_fixture.h"
#include "support/child_process.h"

namespace fscanner {
namespace {

/// Describes each file as "type of ./name"; dies on the files called bad*.
const std::string kTalkative =
    "for a; do case $a in\n"
    "./bad*) kill -9 $$;;\n"
    "./*) printf 'type of %s\\0' \"$a\";;\n"
    "esac; done\n";

using ProgramTest = FileTypeTest;

TEST_F(ProgramTest, ThatGivesNoAnswerCostsTheTypesAlone) {
    struct Case {
        const char* name;
        std::string script;
        std::ptrdiff_t runs;
    };
    // A run that ends early is repeated behind the file at which it stopped.
    const std::vector<Case> cases{
        {"silent", "exit 0\n", 3},
        {"dies", "kill -11 $$\n", 3},
        {"complains", "echo failure >&2; exit 1\n", 3},
        {"rubbish without an end", "echo rubbish; echo /a: text\n", 3},
        {"floods without an end", "exec yes\n", 1},
        {"hangs", "echo $$ > \"$0.pid\"; exec sleep 1000\n", 1},
        {"hangs with its output closed", "exec >&-; exec sleep 1000\n", 3},
    };
    fileProgram().timePerRun = std::chrono::milliseconds(1500);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        for (const char* name : {"a", "b", "c"}) write(name);
        standIn(c.script);
        for (const char* name : {"a", "b", "c"}) EXPECT_EQ(typeOf(name), "unknown");
        EXPECT_EQ(runs(), c.runs) << "asking for the others must not try again";
        EXPECT_FALSE(hasChildren());
    }
    const pid_t sleeper = std::stoi(readWholeFile(tools_ / "file.pid"));
    EXPECT_NE(::kill(sleeper, 0), 0) << "still runs";
    for (const std::string& program : {std::string(), tools_ / "absent", files_.path().string()}) {
        fileProgram().path = program;
        EXPECT_EQ(typeOf("a"), "unknown") << program;
    }
}

TEST_F(ProgramTest, ThatDiesOnAFileKeepsTheOtherAnswersUntilItIsGivenUp) {
    for (const char* name : {"a", "bad", "c"}) write(name);
    standIn(kTalkative);
    for (const std::string name : {"c", "bad", "a"})
        EXPECT_EQ(typeOf(name), name == "bad" ? "unknown" : "type of ./" + name);
    EXPECT_EQ(runs(), 2);
    std::filesystem::create_directory(path("all"));
    for (int i = 10; i < 60; ++i) write("all/bad" + std::to_string(i));
    for (int i = 10; i < 60; ++i) EXPECT_EQ(typeOf("all/bad" + std::to_string(i)), "unknown");
    EXPECT_EQ(runs(), 2 + 9);
}

TEST_F(ProgramTest, IsRunSeveralTimesForAHugeDirectory) {
    for (int i = 0; i < 100; ++i) write(std::string(200, 'n') + std::to_string(i));
    standIn(kTalkative);
    fileProgram().argumentBytes = 2500;  // eleven names
    for (int i = 99; i >= 0; --i) {
        const std::string name = std::string(200, 'n') + std::to_string(i);
        EXPECT_EQ(typeOf(name), "type of ./" + name);
    }
    EXPECT_EQ(runs(), 10);
    fileProgram().argumentBytes = 1;
    EXPECT_EQ(typeOf(std::string(200, 'n') + "0").substr(0, 8), "type of ");
}

TEST_F(ProgramTest, InheritsNoDescriptorAndNoSignalSetting) {
    write("a");
    // Seven digits each for signals 1 to 28: the C library ignores two of its own.
    standIn(
        "[ -e /proc/$$/fd/77 ] && printf 'leak ' \n"
        "exec awk '/Sig(Blk|Ign)/ {printf \"%s\", substr($2, 10)} END {printf \"%c\", 0}' "
        "/proc/self/status\n");
    const int result = inChild([&] {
        ::dup2(1, 77);
        ::signal(SIGPIPE, SIG_IGN);
        ::signal(SIGUSR1, SIG_IGN);
        sigset_t all;
        sigfillset(&all);
        ::sigprocmask(SIG_BLOCK, &all, nullptr);
        return typeOf("a") == std::string(14, '0') ? 0 : 1;
    });
    EXPECT_EQ(result, 0);
}

TEST_F(ProgramTest, WorksForHostsWithOddSettings) {
    write("a");
    standIn("sleep 0.2; printf 'late\\0'\n");
    const auto isKnownAfter = [&](auto oddity) {
        return inChild([&] {
                   oddity();
                   return typeOf("a") == "late" ? 0 : 1;
               }) == 0;
    };
    for (const auto& [first, last] : {std::pair{0, 2}, {0, 0}, {1, 2}})
        EXPECT_TRUE(isKnownAfter([first = first, last = last] {
            for (int fd = first; fd <= last; ++fd) ::close(fd);
        })) << first;
    EXPECT_TRUE(isKnownAfter([] { ::signal(SIGCHLD, SIG_IGN); }))
        << "children reaped by the system";
    EXPECT_TRUE(isKnownAfter([] {
        struct sigaction action {};
        action.sa_handler = [](int) {};  // no SA_RESTART
        ::sigaction(SIGALRM, &action, nullptr);
        const itimerval often{{0, 2000}, {0, 2000}};
        ::setitimer(ITIMER_REAL, &often, nullptr);
    })) << "interrupted all the time";
}

// A killed process that is being debugged stays until its debugger reaps it. It stands for one
// that waits for a dead server.
TEST_F(ProgramTest, ThatCannotBeReapedIsLeftBehind) {
    int word[2];
    int over[2];
    ASSERT_EQ(::pipe(word), 0);
    ASSERT_EQ(::pipe(over), 0);
    auto program = ChildProcess::start({"/bin/sh", "-c", "echo $$; exec sleep 60"}, AT_FDCWD);
    ASSERT_TRUE(program);
    std::string number;
    program->read(ChildProcess::Clock::now() + std::chrono::seconds(20), [&](auto bytes) {
        number += bytes;
        return number.find('\n') == number.npos;
    });
    const pid_t debugger = ::fork();
    if (debugger == 0) {
        ::close(over[1]);
        const bool attached = ::ptrace(PTRACE_SEIZE, std::stoi(number), nullptr, nullptr) == 0;
        [[maybe_unused]] const auto told = ::write(word[1], attached ? "y" : "n", 1);
        pollfd end{over[0], POLLIN, 0};
        ::_exit(::poll(&end, 1, 20'000) == 1 ? 0 : 1);
    }
    char attached = 0;
    ASSERT_EQ(::read(word[0], &attached, 1), 1);
    if (attached == 'y') program.reset();
    for (const int end : {word[0], word[1], over[0], over[1]}) ::close(end);
    int status = 0;
    ::waitpid(debugger, &status, 0);
    if (attached != 'y') GTEST_SKIP() << "no other process may be debugged here";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "it was waited for until the debugger gave up";
    while (::waitpid(std::stoi(number), nullptr, 0) < 0 && errno == EINTR) continue;
}

}  // namespace
}  // namespace fscanner
