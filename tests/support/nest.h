#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace fscanner {

/// Goes down from a directory, by descriptors: the paths are too long for the system.
class Nest {
public:
    explicit Nest(const std::string& root) : at_(::open(root.c_str(), O_DIRECTORY | O_CLOEXEC)) {}
    ~Nest() { ::close(at_); }
    Nest(Nest&&) = delete;

    void file(const char* name) const {
        const int made = ::openat(at_, name, O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
        EXPECT_GE(made, 0);
        ::close(made);
    }
    void directory(const std::string& name) const {
        EXPECT_EQ(::mkdirat(at_, name.c_str(), 0700), 0);
    }
    void enter(const std::string& name) {
        const int next = ::openat(at_, name.c_str(), O_DIRECTORY | O_CLOEXEC);
        ASSERT_GE(next, 0);
        ::close(at_);
        at_ = next;
    }
    void down(const std::string& name) {
        directory(name);
        enter(name);
    }

private:
    int at_;
};

}  // namespace fscanner
