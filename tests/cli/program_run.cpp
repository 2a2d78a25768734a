#include "program_run.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <pty.h>
#include <sys/prctl.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "build_paths.h"
#include "support/child_process.h"

namespace fscan::test {
namespace {

/// The two ends of a channel. Ends that are still open are closed with it.
struct Channel {
    int reader = -1;
    int writer = -1;

    explicit Channel(bool terminal = false, unsigned short columns = 0) {
        std::array<int, 2> ends{};
        const winsize size{.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
        if (terminal ? openpty(&ends[0], &ends[1], nullptr, nullptr, &size) : pipe(ends.data()))
            throw std::runtime_error("no channel");
        reader = ends[0];
        writer = ends[1];
    }
    Channel(Channel&&) = delete;
    ~Channel() {
        close(reader);
        closeWriter();
    }
    void closeWriter() {
        if (writer != -1) close(writer);
        writer = -1;
    }
};

/// Programs must not fill the user's cache, and must not be answered from it.
const std::string& cacheHome() {
    static const fscanner::TemporaryDirectory directory;
    return directory.path().native();
}

bool dropOverride() {
    if (geteuid() != 0) return true;
    return prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) == 0 &&
           prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0) == 0;
}

void redirect(Stdout to, const Channel& out) {
    if (to == Stdout::full) {
        dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO);
    } else if (to == Stdout::closed) {
        close(STDOUT_FILENO);
    } else {
        dup2(out.writer, STDOUT_FILENO);
    }
    // A reader can be gone in two ways, and both are met: the signal, and EPIPE.
    std::signal(SIGPIPE, to == Stdout::readerGone ? SIG_IGN : SIG_DFL);
}

[[noreturn]] void becomeProgram(const std::string& program, const Arguments& arguments,
                                const RunSettings& settings, const Channel& out,
                                const Channel& err) {
    redirect(settings.to, out);
    dup2(err.writer, STDERR_FILENO);
    for (int other = 3; other < 64; ++other) close(other);
    setenv("XDG_CACHE_HOME", cacheHome().c_str(), 1);
    for (const auto& [name, value] : settings.environment) setenv(name.c_str(), value.c_str(), 1);
    if (chdir(settings.directory.c_str()) != 0) _exit(126);
    if (settings.withoutOverride && !dropOverride()) _exit(126);
    std::vector<char*> list = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
        list.push_back(const_cast<char*>(argument.c_str()));
    list.push_back(nullptr);
    execvp(program.c_str(), list.data());
    _exit(127);
}

/// Reads both channels until their writers are gone, in whatever order they write.
void readBoth(const Channel& out, const Channel& err, RunResult& result) {
    std::array<pollfd, 2> waits = {pollfd{out.reader, POLLIN, 0}, pollfd{err.reader, POLLIN, 0}};
    std::array<std::string*, 2> texts = {&result.out, &result.err};
    while (waits[0].fd != -1 || waits[1].fd != -1) {
        if (poll(waits.data(), waits.size(), -1) < 0) continue;
        for (std::size_t i = 0; i < waits.size(); ++i) {
            if (waits[i].revents == 0) continue;
            std::array<char, 4096> piece{};
            const ssize_t got = read(waits[i].fd, piece.data(), piece.size());
            if (got > 0) texts[i]->append(piece.data(), static_cast<std::size_t>(got));
            if (got <= 0) waits[i].fd = -1;
        }
    }
}

}  // namespace

RunResult runProgram(const std::string& program, const Arguments& arguments,
                     const RunSettings& settings) {
    Channel out(settings.to == Stdout::terminal);
    Channel err(settings.watched, settings.columns);
    if (settings.to == Stdout::readerGone) {
        close(out.reader);
        out.reader = -1;
    }
    cacheHome();
    const pid_t child = fork();
    if (child == 0) becomeProgram(program, arguments, settings, out, err);
    out.closeWriter();
    err.closeWriter();
    RunResult result;
    if (settings.pause.count() > 0) {
        pollfd begun{out.reader, POLLIN, 0};
        poll(&begun, 1, -1);
        std::this_thread::sleep_for(settings.pause);
    }
    readBoth(out, err, result);
    int status = 0;
    waitpid(child, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return result;
}

RunResult fscan(const Arguments& arguments, const RunSettings& settings) {
    Arguments all = arguments;
    const auto choosesProvider = [](const std::string& argument) {
        return argument.starts_with("--provider") || argument == "--no-cache";
    };
    if (!settings.cached && std::none_of(all.begin(), all.end(), choosesProvider))
        all.insert(all.begin(), "--no-cache");
    return runProgram(FSCAN_PROGRAM, all, settings);
}

std::vector<std::string> records(const std::string& output, char end) {
    std::vector<std::string> pieces;
    std::istringstream stream(output);
    for (std::string piece; std::getline(stream, piece, end);) pieces.push_back(piece);
    std::sort(pieces.begin(), pieces.end());
    return pieces;
}

bool canDropOverride() {
    return fscanner::inChild([] { return dropOverride() ? 0 : 1; }) == 0;
}

void FscanTest::add(const std::string& path, const std::string& text) const {
    const std::filesystem::path file = tree_ / path;
    std::filesystem::create_directories(file.parent_path());
    fscanner::writeWholeFile(file, text);
}

RunSettings FscanTest::here(RunSettings settings) const {
    settings.directory = tree_.path();
    settings.environment.insert({{"LC_ALL", "C.UTF-8"}, {"TZ", "UTC"}});
    return settings;
}

}  // namespace fscan::test
