#include "monitor_support/descriptor.h"

#include <climits>

namespace fscanner::monitor {

// The system takes paths of less than PATH_MAX bytes: a longer one is opened in parts.
Descriptor openDirectory(const std::string& path, int flags) {
    constexpr int kAlways = O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Descriptor from;
    std::size_t start = 0;
    while (path.size() - start >= PATH_MAX) {
        const std::size_t end = path.rfind('/', start + PATH_MAX - 1);
        if (end == std::string::npos || end <= start)
            break;  // one name as long: the system refuses
        const std::string part = path.substr(start, end - start);
        from = Descriptor(::openat(from.get(), part.c_str(), O_PATH | kAlways));
        if (!from) return from;
        start = end + 1;
    }
    return Descriptor(::openat(from.get(), path.c_str() + start, flags | kAlways));
}

}  // namespace fscanner::monitor
