#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <filesystem>
#include <string>

#include "support/child_process.h"

namespace fscanner {

/// The result of a child process that may not mount: its test is to be skipped.
constexpr int kNotAllowed = 77;

/// Gives this process its own mounts. Others do not see what is mounted, and it is unmounted
/// when the process ends.
inline bool enterPrivateMounts() {
    return ::unshare(CLONE_NEWNS) == 0 &&
           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Mounts an empty file system on `directory`, which is made. `source` is the device in
/// the mount table.
inline bool mountMemory(const std::string& source, const std::string& directory,
                        const char* options = "size=16m") {
    std::filesystem::create_directories(directory);
    return ::mount(source.c_str(), directory.c_str(), "tmpfs", 0, options) == 0;
}

/// Runs `body` in a process with its own mounts. It may return `kNotAllowed`, or an error text.
/// To be called at the end of a test, which it may skip.
template <typename Body>
void withPrivateMounts(Body body) {
    const int status = inChild([&] { return enterPrivateMounts() ? body() : kNotAllowed; });
    if (status == kNotAllowed) GTEST_SKIP() << "such mounts cannot be made on this machine";
    EXPECT_EQ(status, 0) << "-1: it hung, or crashed";
}

}  // namespace fscanner
