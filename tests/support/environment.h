#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

namespace fscanner {

/// Unsets an environment variable, and gives it its old value back at the end.
class EnvironmentVariable {
public:
    explicit EnvironmentVariable(const char* name) : name_(name) {
        if (const char* value = ::getenv(name)) old_ = value;
        ::unsetenv(name);
    }
    EnvironmentVariable(EnvironmentVariable&&) = delete;
    ~EnvironmentVariable() {
        if (old_) {
            set(*old_);
        } else {
            ::unsetenv(name_);
        }
    }
    void set(const std::string& value) { ::setenv(name_, value.c_str(), 1); }

private:
    const char* name_;
    std::optional<std::string> old_;
};

}  // namespace fscanner
