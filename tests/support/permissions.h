#pragma once

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fscanner {

/// Makes permissions apply to this thread, even if it is root's, during its lifetime.
class PermissionsHold {
public:
    PermissionsHold() {
        if (::syscall(SYS_capget, &header_, before_) != 0) return;
        __user_cap_data_struct now[2] = {before_[0], before_[1]};
        now[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        held_ = ::syscall(SYS_capset, &header_, now) == 0;
    }
    PermissionsHold(PermissionsHold&&) = delete;
    ~PermissionsHold() {
        if (held_) ::syscall(SYS_capset, &header_, before_);
    }
    /// False if that failed: then a test is to be skipped.
    explicit operator bool() const { return held_; }

private:
    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct before_[2] = {};
    bool held_ = false;
};

}  // namespace fscanner
