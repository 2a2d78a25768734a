#include "fscanner/engine/watch_client.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>

#include "fscanner/common/debug.h"
#include "fscanner/common/path_text.h"
#include "fscanner/engine/watch_protocol.h"

namespace fscanner {

namespace {

using Clock = std::chrono::steady_clock;

// One question and its answer.
class Conversation {
public:
    Conversation(int socket, Clock::time_point end) : socket_(socket), end_(end) {}

    bool send(std::string_view message);
    bool receive(std::string& message);

private:
    bool waitFor(short events) const;

    int socket_;
    Clock::time_point end_;
};

bool Conversation::waitFor(short events) const {
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    const auto left = duration_cast<milliseconds>(end_ - Clock::now()).count();
    pollfd poll{socket_, events, 0};
    return left > 0 && uninterrupted([&] { return ::poll(&poll, 1, static_cast<int>(left)); }) > 0;
}

bool Conversation::send(std::string_view message) {
    while (!message.empty()) {
        const ssize_t sent = uninterrupted(
            [&] { return ::send(socket_, message.data(), message.size(), MSG_NOSIGNAL); });
        if (sent > 0)
            message.remove_prefix(static_cast<std::size_t>(sent));
        else if (errno != EAGAIN || !waitFor(POLLOUT))
            return false;
    }
    return true;
}

bool Conversation::receive(std::string& message) {
    std::array<char, 16384> buffer;
    std::size_t wanted = kLengthBytes;
    message.clear();
    while (message.size() < wanted) {
        const std::size_t room = std::min(buffer.size(), wanted - message.size());
        const ssize_t got = uninterrupted([&] { return ::recv(socket_, buffer.data(), room, 0); });
        if (got == 0 || (got < 0 && (errno != EAGAIN || !waitFor(POLLIN)))) return false;
        if (got < 0) continue;
        message.append(buffer.data(), static_cast<std::size_t>(got));
        if (message.size() == kLengthBytes) wanted = messageLength(message).value_or(0);
        if (wanted < kLengthBytes || wanted > kLongestAnswer) return false;
    }
    message.erase(0, kLengthBytes);
    return true;
}

bool liesWithin(const wchar_t* path, const std::optional<TreeChanges>& changes) {
    return !changes || std::all_of(changes->directories.begin(), changes->directories.end(),
                                   [path](const auto& one) { return isWithin(one.path, path); });
}

}  // namespace

std::optional<TreeChanges> WatchClient::changesIn(const wchar_t* path) {
    if (silent_) return std::nullopt;
    silent_ = true;
    const Descriptor socket = connectTo(directory_, kWatchSocketName);
    if (!socket || !isTrustedPeer(socket.get())) return std::nullopt;
    const std::optional<WatchPlace> place = watchPlaceOf(path);
    if (!place) return std::nullopt;
    const Clock::time_point start = Clock::now();
    Conversation conversation(socket.get(), start + patience_);
    std::string message = encode(WatchQuestion{table_, path, *place});
    std::optional<TreeChanges> answer;
    if (message.empty() || !conversation.send(message) || !conversation.receive(message) ||
        !decode(message, answer) || !liesWithin(path, answer)) {
        debug("FS_Cache::watch - the watcher of the cache does not answer\n");
        return std::nullopt;
    }
    patience_ -= Clock::now() - start;
    silent_ = false;
    return answer;
}

}  // namespace fscanner
