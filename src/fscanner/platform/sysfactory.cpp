#include "fscanner/platform/sysfactory.h"

#include <ctime>

#include "fscanner/common/utf8.h"
#include "fscanner/platform/linuxsync.h"
#include "fscanner/platform/offered.h"

namespace fscanner {

std::unique_ptr<LinuxMmFile> SysFactory::createMmFile(const wchar_t* name) {
    if (name == nullptr) return nullptr;
    const std::unique_ptr<char[]> path(myWcsToMbs(name));
    return std::make_unique<LinuxMmFile>(path.get());
}

std::unique_ptr<StdFile> SysFactory::createStdFile(const wchar_t* name) {
    if (name == nullptr) return nullptr;
    return std::make_unique<StdFile>(name);
}

std::unique_ptr<AbstractSync> SysFactory::createMutex(const wchar_t* name) {
    if (name == nullptr) return nullptr;
    return std::make_unique<LinuxSharedMutex>(toMultibyte(name).c_str());
}

std::unique_ptr<AbstractSync> SysFactory::createSemaphore(const wchar_t* name) {
    if (name == nullptr) return nullptr;
    return std::make_unique<LinuxSemaphore>(toMultibyte(name).c_str());
}

Thread* SysFactory::createThread(Runnable*) {
    return nullptr;
}

Thread* SysFactory::createThread(Runnable*, long) {
    return nullptr;
}

void SysFactory::sleep(unsigned int milliseconds) {
    const timespec pause{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    ::nanosleep(&pause, nullptr);
}

}  // namespace fscanner
