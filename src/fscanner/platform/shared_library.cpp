#include "fscanner/platform/shared_library.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "fscanner/common/strings.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {

namespace {

using MallocText = std::unique_ptr<char, FreeDeleter>;

MallocText resolved(const char* path) {
    return MallocText(::realpath(path, nullptr));
}

std::string directoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == path.npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Why a file or directory must not be trusted: somebody other than root and this user owns it or
// may write to it. Null when it may be trusted.
const char* ownershipProblem(const struct stat& info) {
    if (info.st_uid != 0 && info.st_uid != ::geteuid())
        return "belongs neither to root nor to the user";
    return (info.st_mode & (S_IWGRP | S_IWOTH)) != 0 ? "can be written by others" : nullptr;
}

// Describes why the file or directory must not be trusted; empty when it may be. `what` names it.
std::string brokenRule(const std::string& path, const char* what, mode_t type) {
    struct stat info;
    if (::stat(path.c_str(), &info) != 0) return std::string(what) + ": " + std::strerror(errno);
    if ((info.st_mode & S_IFMT) != type) return std::string(what) + " is of the wrong type";
    const char* const problem = ownershipProblem(info);
    return problem != nullptr ? std::string(what) + ' ' + problem : std::string();
}

// ---- Complete files ---------------------------------------------------------

bool readAt(const Descriptor& file, std::uint64_t offset, void* out, std::size_t size) {
    return offset <= INT64_MAX &&
           ::pread(file.get(), out, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

bool isInside(std::uint64_t offset, std::uint64_t length, std::uint64_t fileSize) {
    return offset <= fileSize && length <= fileSize - offset;
}

// Whether the ELF file is complete. The system's loader maps the segments that the headers name
// without comparing them with the file's length. In a file that was cut, the first access behind
// its end kills the process by SIGBUS.
bool isWholeLibrary(const Descriptor& file) {
    struct stat info;
    ElfW(Ehdr) header;
    if (!file || ::fstat(file.get(), &info) != 0 || !readAt(file, 0, &header, sizeof header) ||
        std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0)
        return false;
    const auto size = static_cast<std::uint64_t>(info.st_size);
    // Linkers write the section header table last, behind all segments.
    if (!isInside(header.e_shoff, std::uint64_t{header.e_shnum} * header.e_shentsize, size))
        return false;
    if (header.e_phentsize != sizeof(ElfW(Phdr))) return false;
    std::vector<ElfW(Phdr)> segments(header.e_phnum);
    return readAt(file, header.e_phoff, segments.data(), segments.size() * sizeof(ElfW(Phdr))) &&
           std::all_of(segments.begin(), segments.end(), [size](const ElfW(Phdr) & segment) {
               return isInside(segment.p_offset, segment.p_filesz, size);
           });
}

}  // namespace

std::string ownLibraryDirectory() {
    Dl_info info;
    if (::dladdr(reinterpret_cast<void*>(&ownLibraryDirectory), &info) == 0) return ".";
    const MallocText path = resolved(info.dli_fname);
    return directoryOf(path ? path.get() : info.dli_fname);
}

void* openLibrary(const char* path, std::string& error) {
    if (!isWholeLibrary(Descriptor(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)))) {
        error = "the file is no library, or not all of one";
        return nullptr;
    }
    // RTLD_NOW: a missing symbol fails here. With lazy binding its first call would end the host.
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
