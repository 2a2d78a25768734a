#pragma once

#include <string>

namespace fscan {

/// Tells the service manager that has started this process, if one has: "READY=1" and the like, a
/// line each. It listens on the socket that $NOTIFY_SOCKET names.
void tellServiceManager(const std::string& lines);

}  // namespace fscan
