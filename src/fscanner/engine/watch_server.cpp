#include "fscanner/engine/watch_server.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace fscanner {

namespace {

constexpr std::size_t kMostClients = 64;
// While nobody can be taken, new clients must not wake us again and again.
constexpr unsigned kOnce = EPOLLIN | EPOLLONESHOT;

}  // namespace

bool WatchServer::open(const std::wstring& directory) {
    poll_ = aboveStandardStreams(Descriptor(::epoll_create1(EPOLL_CLOEXEC)));
    socket_ = listenAt(directory, kWatchSocketName);
    return poll_ && socket_ && listen(EPOLL_CTL_ADD, socket_.get(), kOnce);
}

bool WatchServer::listen(int operation, int descriptor, unsigned events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    return ::epoll_ctl(poll_.get(), operation, descriptor, &event) == 0;
}

bool WatchServer::step() {
    std::array<epoll_event, 32> events;
    const int count = uninterrupted([&] {
        return ::epoll_wait(poll_.get(), events.data(), static_cast<int>(events.size()), 0);
    });
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        if (event.data.fd != socket_.get()) serve(event.data.fd, event.events);
    }
    const bool accepted = accept();
    if (accepted) listen(EPOLL_CTL_MOD, socket_.get(), kOnce);
    return accepted;
}

// Takes those who wait. Those who are slow to ask make room.
bool WatchServer::accept() {
    for (std::size_t i = 0; i < kMostClients; ++i) {
        Descriptor client = aboveStandardStreams(
            Descriptor(::accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)));
        if (!client && (errno == EINTR || errno == ECONNABORTED)) continue;
        if (!client) return errno == EAGAIN;
        const int descriptor = client.get();
        if (!isTrustedPeer(descriptor) || !listen(EPOLL_CTL_ADD, descriptor, EPOLLIN)) continue;
        if (clients_.size() == kMostClients) dropOldest();
        clients_[descriptor] = {std::move(client), ++last_, {}, {}};
    }
    return true;
}

void WatchServer::dropOldest() {
    const auto isOlder = [](const auto& a, const auto& b) {
        return a.second.number < b.second.number;
    };
    clients_.erase(std::min_element(clients_.begin(), clients_.end(), isOlder));
}

void WatchServer::serve(int descriptor, unsigned events) {
    const auto client = clients_.find(descriptor);
    if (client == clients_.end()) return;
    const bool goesOn = client->second.out.empty() ? read(client->second) : write(client->second);
    if (!goesOn || (events & (EPOLLERR | EPOLLHUP)) != 0) clients_.erase(client);
}

// False when the client is done with.
bool WatchServer::read(Client& client) {
    std::array<char, 4096> buffer;
    const ssize_t got =
        uninterrupted([&] { return ::recv(client.socket.get(), buffer.data(), buffer.size(), 0); });
    if (got <= 0) return got < 0 && errno == EAGAIN;
    client.in.append(buffer.data(), static_cast<std::size_t>(got));
    const std::optional<std::size_t> length = messageLength(client.in);
    if (!length) return true;
    if (*length < kLengthBytes || *length > kLongestQuestion || *length < client.in.size())
        return false;
    if (*length > client.in.size()) return true;
    WatchQuestion question;
    if (!decode(std::string_view(client.in).substr(kLengthBytes), question)) return false;
    client.in.clear();
    client.out = encode(answer_(question));
    if (client.out.empty()) client.out = encode(std::optional<TreeChanges>());
    return write(client);
}

bool WatchServer::write(Client& client) {
    const ssize_t sent = uninterrupted([&] {
        return ::send(client.socket.get(), client.out.data(), client.out.size(), MSG_NOSIGNAL);
    });
    if (sent < 0 && errno != EAGAIN) return false;
    if (sent > 0) client.out.erase(0, static_cast<std::size_t>(sent));
    return !client.out.empty() && listen(EPOLL_CTL_MOD, client.socket.get(), EPOLLOUT);
}

}  // namespace fscanner
