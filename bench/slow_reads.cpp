// Preloaded into a program, makes each getdents64 take a millisecond longer, as on a disk or a
// server that is slow to answer. Shows how much several threads help there, on any machine.

#include <dlfcn.h>
#include <sys/syscall.h>

#include <chrono>
#include <cstdarg>
#include <thread>

extern "C" long syscall(long number, ...) noexcept {
    using Call = long (*)(long, ...);
    static const auto next = reinterpret_cast<Call>(dlsym(RTLD_NEXT, "syscall"));
    long arguments[6];
    va_list list;
    va_start(list, number);
    for (long& argument : arguments) argument = va_arg(list, long);
    va_end(list);
    if (number == SYS_getdents64) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return next(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                arguments[5]);
}
