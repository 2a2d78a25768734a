#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <filesystem>
#include <string>

#include "support/child_process.h"

namespace fscanner {

/// What a child process returns that may not mount: its test is to be skipped.
constexpr int kNotAllowed = 77;

/// Gives this process mounts of its own, so that what is mounted is seen by nobody else
/// and goes with the process.
inline bool enterPrivateMounts() {
    return ::unshare(CLONE_NEWNS) == 0 &&
           ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Mounts an empty file system on `directory`, which is made. `source` is what the mount
/// table will call the device.
inline bool mountMemory(const std::string& source, const std::string& directory,
                        const char* options = "size=16m") {
    std::filesystem::create_directories(directory);
    return ::mount(source.c_str(), directory.c_str(), "tmpfs", 0, options) == 0;
}

/// Runs `body` in a process with mounts of its own, where it may return `kNotAllowed`, or what is
/// wrong. To be called at the end of a test, which it may skip.
template <typename Body>
void withPrivateMounts(Body body) {
    const int status = inChild([&] { return enterPrivateMounts() ? body() : kNotAllowed; });
    if (status == kNotAllowed) GTEST_SKIP() << "such mounts cannot be made on this machine";
    EXPECT_EQ(status, 0) << "-1: it hung, or crashed";
}

}  // namespace fscanner
