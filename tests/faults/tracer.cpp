#include "tracer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <stdexcept>

namespace fscanner {

namespace {

struct Group {
    std::string_view name;
    std::vector<long> calls;
};

const std::vector<Group>& groups() {
    static const std::vector<Group> table = {
        {"open", {SYS_open, SYS_openat, SYS_openat2}},
        {"stat", {SYS_stat, SYS_lstat, SYS_fstat, SYS_newfstatat, SYS_statx, SYS_access}},
        {"read", {SYS_read, SYS_pread64}},
        {"write", {SYS_write, SYS_pwrite64}},
        {"fallocate", {SYS_fallocate}},
        {"ftruncate", {SYS_ftruncate}},
        {"mmap", {SYS_mmap}},
        {"mremap", {SYS_mremap}},
        {"fsync", {SYS_fsync, SYS_fdatasync, SYS_msync}},
        {"lock", {SYS_fcntl, SYS_flock}},
        {"unlink", {SYS_unlink, SYS_unlinkat}},
        {"rename", {SYS_rename, SYS_renameat, SYS_renameat2}},
        {"getdents", {SYS_getdents64}},
        {"readlink", {SYS_readlink, SYS_readlinkat, SYS_getcwd}},
        {"mkdir", {SYS_mkdir, SYS_mkdirat}},
        {"spawn", {SYS_clone, SYS_clone3, SYS_vfork, SYS_fork, SYS_pipe2, SYS_poll, SYS_wait4}},
        {"close", {SYS_close}},
    };
    return table;
}

void setRegisters(pid_t process, bool atEntry, int error) {
    user_regs_struct registers{};
    ::ptrace(PTRACE_GETREGS, process, nullptr, &registers);
    // The call is not made; its result is replaced when it is over.
    if (atEntry) registers.orig_rax = ULLONG_MAX;
    if (!atEntry) registers.rax = static_cast<unsigned long long>(-static_cast<long long>(error));
    ::ptrace(PTRACE_SETREGS, process, nullptr, &registers);
}

[[noreturn]] void becomeTraced(const Tracer::Body& body) {
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    ::_exit(body());
}

// Returns 0 when the process is over, else the signal to go on with.
class Session {
public:
    Session(pid_t process, const Tracer::Judge& judge) : process_(process), judge_(judge) {
        int status = 0;
        ::waitpid(process_, &status, 0);
        ::ptrace(PTRACE_SETOPTIONS, process_, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    }
    int run() {
        long signal = 0;
        for (;;) {
            ::ptrace(PTRACE_SYSCALL, process_, nullptr, signal);
            int status = 0;
            if (::waitpid(process_, &status, 0) != process_) return -1;
            if (WIFEXITED(status)) return WEXITSTATUS(status);
            if (WIFSIGNALED(status)) return -WTERMSIG(status);
            signal = 0;
            if (WSTOPSIG(status) == (SIGTRAP | 0x80))
                stopped();
            else if (WSTOPSIG(status) != SIGTRAP)
                signal = WSTOPSIG(status);
        }
    }

private:
    void stopped() {
        __ptrace_syscall_info info{};
        ::ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof info, &info);
        if (info.op == PTRACE_SYSCALL_INFO_EXIT && failWith_) {
            setRegisters(process_, false, failWith_);
            failWith_ = 0;
        }
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return;
        TracedCall call{process_, info.entry.nr, {}};
        for (std::size_t i = 0; i < call.arguments.size(); ++i)
            call.arguments[i] = info.entry.args[i];
        const int verdict = judge_(call);
        if (verdict == Tracer::kKill) {
            ::kill(process_, SIGKILL);
        } else if (verdict > 0) {
            failWith_ = verdict;
            setRegisters(process_, true, 0);
        } else if (verdict < 0) {
            ::kill(process_, -verdict);
        }
    }

    pid_t process_;
    const Tracer::Judge& judge_;
    int failWith_ = 0;
};

}  // namespace

std::string_view TracedCall::group() const {
    for (const Group& group : groups())
        for (const long member : group.calls)
            if (static_cast<unsigned long long>(member) == number) return group.name;
    return {};
}

std::string TracedCall::path(unsigned argument) const {
    char text[PATH_MAX] = "";
    const int memory =
        ::open(("/proc/" + std::to_string(process) + "/mem").c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t got =
        ::pread(memory, text, sizeof text - 1, static_cast<off_t>(arguments[argument]));
    ::close(memory);
    return {text, ::strnlen(text, got < 0 ? 0 : static_cast<std::size_t>(got))};
}

std::string TracedCall::descriptorPath(unsigned argument) const {
    char text[PATH_MAX];
    const std::string link = "/proc/" + std::to_string(process) + "/fd/" +
                             std::to_string(static_cast<int>(arguments[argument]));
    const ssize_t length = ::readlink(link.c_str(), text, sizeof text);
    return {text, length < 0 ? 0 : static_cast<std::size_t>(length)};
}

bool Tracer::available() {
#ifdef __x86_64__
    static const bool permitted =
        Tracer().run([] { return 7; }, [](const auto&) { return 0; }) == 7;
    return permitted;
#else
    return false;
#endif
}

int Tracer::run(const Body& body, const Judge& judge) {
    const pid_t process = ::fork();
    if (process < 0) throw std::runtime_error("fork");
    if (process == 0) becomeTraced(body);
    return Session(process, judge).run();
}

unsigned Tracer::countCalls(const Body& body) {
    unsigned calls = 0;
    run(body, [&](const TracedCall&) {
        ++calls;
        return 0;
    });
    return calls;
}

int Tracer::killAt(unsigned call, const Body& body) {
    unsigned calls = 0;
    return run(body, [&](const TracedCall&) { return ++calls == call ? kKill : 0; });
}

}  // namespace fscanner
