#pragma once

#include <fcntl.h>
#include <linux/fuse.h>
#include <unistd.h>

#include <array>

#include "support/private_mounts.h"

namespace fscanner {

/// Mounts a file system that begins normally and then stops answering. When the descriptor is
/// closed, it answers with errors. -1 where that cannot be done.
inline int mountDead(const char* source, const std::string& directory) {
    const int server = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options =
        "fd=" + std::to_string(server) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
    if (server < 0 || ::mount(source, directory.c_str(), "fuse", 0, options.c_str()) != 0)
        return -1;
    alignas(fuse_in_header) std::array<char, 1 << 18> request{};
    if (::read(server, request.data(), request.size()) < 0) return -1;
    struct {
        fuse_out_header header{};
        fuse_init_out init{};
    } answer;
    answer.header.len = sizeof answer;
    answer.header.unique = reinterpret_cast<const fuse_in_header*>(request.data())->unique;
    answer.init.major = FUSE_KERNEL_VERSION;
    answer.init.minor = FUSE_KERNEL_MINOR_VERSION;
    answer.init.max_write = 4096;
    return ::write(server, &answer, sizeof answer) == sizeof answer ? server : -1;
}

}  // namespace fscanner
