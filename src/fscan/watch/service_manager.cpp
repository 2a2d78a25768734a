#include "fscan/watch/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace fscan {

void tellServiceManager(const std::string& lines) {
    const char* const name = std::getenv("NOTIFY_SOCKET");
    if (name == nullptr) return;
    const std::string_view path = name;
    sockaddr_un address{};
    const bool known = path.starts_with('/') || path.starts_with('@');
    if (!known || path.size() >= sizeof address.sun_path) return;
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    if (path.front() == '@') address.sun_path[0] = '\0';  // in no directory
    const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0) return;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    [[maybe_unused]] const ssize_t sent =
        ::sendto(socket, lines.data(), lines.size(), MSG_NOSIGNAL,
                 reinterpret_cast<const sockaddr*>(&address), size);
    ::close(socket);
}

}  // namespace fscan
