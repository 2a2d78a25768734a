// A watch that keeps the cache current, as its users meet it: ready, asked, stopped, killed.

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <optional>

#include "program_run.h"
#include "support/child_process.h"

namespace fscan::test {
namespace {

using testing::HasSubstr;

/// Where a service manager hears of its services.
class NotifySocket {
public:
    explicit NotifySocket(std::string path) : path_(std::move(path)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path_.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::chmod(path_.c_str(), 0777);
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    ~NotifySocket() { ::close(socket_); }

    const std::string& path() const { return path_; }
    /// Waits until a message with this text comes.
    bool hears(const std::string& text) const {
        std::array<char, 512> buffer;
        for (pollfd poll{socket_, POLLIN, 0}; ::poll(&poll, 1, 60'000) > 0;) {
            const ssize_t got = ::recv(socket_, buffer.data(), buffer.size(), 0);
            if (got <= 0) return false;
            if (std::string(buffer.data(), static_cast<std::size_t>(got)).find(text) !=
                std::string::npos)
                return true;
        }
        return false;
    }

private:
    std::string path_;
    int socket_ = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

/// The parameter: whether root, where the test has its rights, gives them up.
class WatchTest : public FscanTest, public testing::WithParamInterface<bool> {
protected:
    void SetUp() override {
        add("d/a");
        add("d/sub/b");
        if (GetParam() && ::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
        if (!GetParam()) return;
        user_ = "setpriv --reuid 65534 --regid 65534 --clear-groups ";
        for (const auto& place : {tree_.path(), home_.path()}) {
            ASSERT_EQ(::chown(place.c_str(), fscanner::kNobody, fscanner::kNobody), 0);
            for (const auto& entry : std::filesystem::recursive_directory_iterator(place))
                ASSERT_EQ(::lchown(entry.path().c_str(), fscanner::kNobody, fscanner::kNobody), 0);
        }
    }
    void TearDown() override {
        if (watch_) end(SIGKILL);
    }

    /// Returns when the trees are up to date.
    void start() {
        const std::string command = "cd '" + tree_.path().string() + "' && NOTIFY_SOCKET='" +
                                    notify_.path() + "' XDG_CACHE_HOME='" + home_.path().string() +
                                    "' exec " + user_ + FSCAN_PROGRAM + " --watch d 2>/dev/null";
        watch_ = ::fork();
        if (watch_ == 0) ::_exit(::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr));
        ASSERT_TRUE(notify_.hears("READY=1"));
    }
    int end(int signal) {
        int status = 0;
        ::kill(*watch_, signal);
        EXPECT_EQ(::waitpid(*watch_, &status, 0), *watch_);
        watch_.reset();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    RunResult ask(const std::string& arguments) const {
        return shell(user_ + "$0 " + arguments,
                     {.environment = {{"XDG_CACHE_HOME", home_.path()}}, .cached = true});
    }
    /// The files of the tree; `from` is set to where the answer came from.
    Arguments files(std::string& from) const {
        const RunResult result = ask("--stats -n '*' d");
        EXPECT_EQ(result.status, 0) << result.err;
        const std::size_t at = result.err.find("from: ");
        from = at == std::string::npos ? result.err : result.err.substr(at);
        return records(result.out);
    }

    fscanner::TemporaryDirectory home_;
    fscanner::TemporaryDirectory manager_;
    std::string user_;
    std::optional<pid_t> watch_;

private:
    static std::string opened(const std::filesystem::path& directory) {
        std::filesystem::permissions(directory, std::filesystem::perms::all);
        return directory / "notify";
    }
    NotifySocket notify_{opened(manager_.path())};

protected:
    const NotifySocket& notify() const { return notify_; }
};

TEST_P(WatchTest, SearchesAskIt) {
    start();
    std::string from;
    EXPECT_EQ(files(from), (Arguments{"d/a", "d/sub/b"}));
    EXPECT_THAT(from, HasSubstr("the cache (watched)"));
    add("d/sub/new");
    std::filesystem::remove(tree_.path() / "d/a");
    EXPECT_EQ(files(from), (Arguments{"d/sub/b", "d/sub/new"}));
    EXPECT_THAT(from, HasSubstr("the cache (watched)"));
    EXPECT_THAT(ask("--explain -n '*' d").out, HasSubstr(", which a watch keeps current"));
    EXPECT_THAT(ask("--summary json -n '*' d").err, HasSubstr("\"watched\":true"));
    EXPECT_THAT(ask("--cache-status").out, HasSubstr("watch:      keeps it current"));
    const RunResult second = ask("--watch d");
    EXPECT_EQ(second.status, 4);
    EXPECT_EQ(second.err, "fscan: another process watches this cache\n");
    EXPECT_EQ(end(SIGTERM), 0);
    EXPECT_TRUE(notify().hears("STOPPING=1"));
    add("d/later");
    EXPECT_EQ(files(from), (Arguments{"d/later", "d/sub/b", "d/sub/new"}));
    EXPECT_THAT(from, HasSubstr("the cache (checked)"));
}

/// Whatever becomes of it, answers are right.
TEST_P(WatchTest, CanBeStoppedKilledAndRobbedOfItsCache) {
    start();
    std::string from;
    add("d/1");
    ::kill(*watch_, SIGSTOP);
    EXPECT_EQ(files(from), (Arguments{"d/1", "d/a", "d/sub/b"}));
    EXPECT_THAT(from, HasSubstr("the cache (checked)"));
    ::kill(*watch_, SIGCONT);
    add("d/2");
    EXPECT_EQ(files(from), (Arguments{"d/1", "d/2", "d/a", "d/sub/b"}));
    EXPECT_EQ(end(SIGKILL), -SIGKILL);
    add("d/3");
    EXPECT_EQ(files(from), (Arguments{"d/1", "d/2", "d/3", "d/a", "d/sub/b"}));
    EXPECT_THAT(from, HasSubstr("the cache (checked)"));
    start();
    EXPECT_EQ(files(from).size(), 5U);
    EXPECT_THAT(from, HasSubstr("the cache (watched)"));
    EXPECT_EQ(ask("--cache-clear").status, 0);
    add("d/4");
    EXPECT_EQ(files(from).size(), 6U);
    EXPECT_EQ(end(SIGINT), 0);
    EXPECT_EQ(ask("--cache-clear").status, 0);
    for (const auto& left : std::filesystem::recursive_directory_iterator(home_.path()))
        EXPECT_TRUE(left.is_directory()) << left.path();
}

INSTANTIATE_TEST_SUITE_P(Users, WatchTest, testing::Bool(),
                         [](const auto& another) { return another.param ? "another" : "own"; });

class WatchOptions : public FscanTest {};

TEST_F(WatchOptions, AreForWholeTrees) {
    add("d/a");
    const std::string whole = "--watch keeps whole trees";
    const struct {
        Arguments arguments;
        std::string says;
    } table[] = {
        {{"-n", "x", "d"}, whole},
        {{"--larger", "1k"}, whole},
        {{"-t", "f"}, whole},
        {{"--json"}, whole},
        {{"-c"}, whole},
        {{"--max-depth", "2"}, whole},
        {{"-L"}, whole},
        {{"--explain"}, whole},
        {{"--not", "-n", "x"}, whole},
        {{"nowhere"}, "nowhere: No such file"},
    };
    for (const auto& row : table) {
        Arguments arguments{"--watch"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const RunResult result = run(arguments);
        EXPECT_EQ(result.status, 2) << row.arguments.front();
        EXPECT_THAT(result.err, HasSubstr(row.says)) << row.arguments.front();
    }
}

}  // namespace
}  // namespace fscan::test
