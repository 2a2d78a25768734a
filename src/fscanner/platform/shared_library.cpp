#include "fscanner/platform/shared_library.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace fscanner {

namespace {

struct Free {
    void operator()(char* s) const { std::free(s); }
};
using MallocText = std::unique_ptr<char, Free>;

MallocText resolved(const char* path) {
    return MallocText(::realpath(path, nullptr));
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == path.npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Which rule of ownership the file or directory breaks, or empty.
std::string brokenRule(const std::string& path, const char* what, mode_t type) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) return std::string(what) + ": " + std::strerror(errno);
    if ((info.st_mode & S_IFMT) != type) return std::string(what) + " is of the wrong type";
    if (info.st_uid != 0 && info.st_uid != ::geteuid())
        return std::string(what) + " belongs neither to root nor to the user";
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return std::string(what) + " can be written by others";
    return {};
}

}  // namespace

std::string ownLibraryDirectory() {
    Dl_info info;
    if (::dladdr(reinterpret_cast<void*>(&ownLibraryDirectory), &info) == 0) return ".";
    const MallocText path = resolved(info.dli_fname);
    return directoryOf(path ? path.get() : info.dli_fname);
}

void* openLibrary(const char* path, std::string& error) {
    void* library = ::dlopen(path, RTLD_NOW);
    if (library == nullptr) error = ::dlerror();
    return library;
}

void* findSymbol(void* library, const char* name) {
    return ::dlsym(library, name);
}

std::string distrust(const char* path, std::string& realPath) {
    if (path[0] != '/') return "the path is not absolute";
    const MallocText real = resolved(path);
    if (!real) return std::string("the file: ") + std::strerror(errno);
    realPath = real.get();
    std::string reason = brokenRule(realPath, "the file", S_IFREG);
    if (reason.empty()) reason = brokenRule(directoryOf(realPath), "the directory", S_IFDIR);
    return reason;
}

}  // namespace fscanner
