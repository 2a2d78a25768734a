#include "fscanner/engine/watch_protocol.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "fscanner/common/utf8.h"
#include "fscanner/platform/directory.h"

namespace fscanner {

namespace {

// Changes with every change of the messages.
constexpr std::uint32_t kVersion = 2;
constexpr std::uint32_t kQuestion = 0x51575346;  // "FSWQ"
constexpr std::uint32_t kAnswer = 0x41575346;    // "FSWA"
constexpr std::uint32_t kKnown = 1;
// STATX_MNT_ID_UNIQUE, which the headers of older systems do not have.
constexpr unsigned kUniqueMount = 0x4000;

class MessageWriter {
public:
    explicit MessageWriter(std::uint32_t kind) {
        number<std::uint32_t>(0);  // the length
        number(kind);
        number(kVersion);
    }
    template <class Number>
    void number(Number value) {
        char bytes[sizeof value];
        std::memcpy(bytes, &value, sizeof value);
        message_.append(bytes, sizeof value);
    }
    void text(std::wstring_view value) {
        number(static_cast<std::uint32_t>(value.size()));
        for (const wchar_t c : value) number(static_cast<std::uint32_t>(c));
    }
    std::string finish(std::size_t longest) {
        if (message_.size() > longest) return {};
        const auto length = static_cast<std::uint32_t>(message_.size());
        std::memcpy(message_.data(), &length, sizeof length);
        return std::move(message_);
    }

private:
    std::string message_;
};

class MessageReader {
public:
    explicit MessageReader(std::string_view message) : rest_(message) {}

    template <class Number>
    bool number(Number& value) {
        if (rest_.size() < sizeof value) return false;
        std::memcpy(&value, rest_.data(), sizeof value);
        rest_.remove_prefix(sizeof value);
        return true;
    }
    bool flag(bool& value) {
        std::uint32_t found = 0;
        if (!number(found) || found > 1) return false;
        value = found == 1;
        return true;
    }
    bool text(std::wstring& value) {
        std::uint32_t length = 0;
        if (!number(length) || length > rest_.size() / sizeof(std::uint32_t)) return false;
        value.clear();
        value.reserve(length);
        for (std::uint32_t c = 0; length > 0; --length) {
            if (!number(c) || c == 0) return false;
            value += static_cast<wchar_t>(c);
        }
        return true;
    }
    bool begins(std::uint32_t kind) {
        std::uint32_t found = 0;
        std::uint32_t version = 0;
        return number(found) && number(version) && found == kind && version == kVersion;
    }
    bool ends() const { return rest_.empty(); }

private:
    std::string_view rest_;
};

bool isAbsolute(const std::wstring& path) {
    return path.starts_with(L'/');
}

// The address of a name in a directory that may have a longer path than an address has room for.
class SocketAddress {
public:
    SocketAddress(const std::wstring& directory, const char* name)
        : directory_(
              openAt(AT_FDCWD, toMultibyte(directory).c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW)) {
        if (!directory_) return;
        address_.sun_family = AF_UNIX;
        const std::string path = "/proc/self/fd/" + std::to_string(directory_.get()) + "/" + name;
        path.copy(address_.sun_path, sizeof address_.sun_path - 1);
    }
    explicit operator bool() const { return static_cast<bool>(directory_); }
    int directory() const { return directory_.get(); }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
    static socklen_t size() { return sizeof(sockaddr_un); }

private:
    Descriptor directory_;
    sockaddr_un address_{};
};

Descriptor makeSocket() {
    return aboveStandardStreams(
        Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)));
}

}  // namespace

std::optional<WatchPlace> watchPlaceOf(const wchar_t* path) {
    const Descriptor directory =
        openDirectoryWithoutLinks(toMultibyte(path).c_str(), DirectoryUse::reach);
    struct statx info {};
    constexpr unsigned wanted = STATX_INO | STATX_MNT_ID;
    if (!directory ||
        ::statx(directory.get(), "", AT_EMPTY_PATH, wanted | kUniqueMount, &info) != 0 ||
        (info.stx_mask & STATX_INO) == 0 || (info.stx_mask & (STATX_MNT_ID | kUniqueMount)) == 0)
        return std::nullopt;
    return WatchPlace{makedev(info.stx_dev_major, info.stx_dev_minor), info.stx_ino,
                      info.stx_mnt_id, (info.stx_mask & kUniqueMount) == 0};
}

std::string encode(const WatchQuestion& question) {
    MessageWriter message(kQuestion);
    message.number(question.place.device);
    message.number(question.place.inode);
    message.number(question.place.mount);
    message.number(std::uint32_t{question.place.reused});
    message.text(question.table);
    message.text(question.path);
    return message.finish(kLongestQuestion);
}

bool decode(std::string_view message, WatchQuestion& question) {
    MessageReader reader(message);
    return reader.begins(kQuestion) && reader.number(question.place.device) &&
           reader.number(question.place.inode) && reader.number(question.place.mount) &&
           reader.flag(question.place.reused) && reader.text(question.table) &&
           reader.text(question.path) && reader.ends() && isAbsolute(question.path);
}

std::string encode(const std::optional<TreeChanges>& answer) {
    MessageWriter message(kAnswer);
    message.number(answer ? kKnown : 0U);
    if (answer) {
        message.number(static_cast<std::uint32_t>(answer->directories.size()));
        for (const ChangedDirectory& one : answer->directories) {
            message.number(std::uint32_t{one.what});
            message.text(one.path);
        }
    }
    return message.finish(kLongestAnswer);
}

bool decode(std::string_view message, std::optional<TreeChanges>& answer) {
    MessageReader reader(message);
    std::uint32_t state = 0;
    if (!reader.begins(kAnswer) || !reader.number(state) || state > kKnown) return false;
    answer.reset();
    if (state != kKnown) return reader.ends();
    TreeChanges changes;
    std::uint32_t count = 0;
    if (!reader.number(count)) return false;
    for (; count > 0; --count) {
        ChangedDirectory one;
        std::uint32_t what = 0;
        if (!reader.number(what) || !reader.text(one.path) || !isAbsolute(one.path)) return false;
        one.what = what;
        changes.directories.push_back(std::move(one));
    }
    if (!reader.ends()) return false;
    answer = std::move(changes);
    return true;
}

std::optional<std::size_t> messageLength(std::string_view bytes) {
    std::uint32_t length = 0;
    if (!MessageReader(bytes).number(length)) return std::nullopt;
    return length;
}

std::optional<std::uint64_t> readChangeCount(int file) {
    std::uint64_t count = 0;
    const ssize_t length = uninterrupted([&] { return ::pread(file, &count, sizeof count, 0); });
    if (length < 0) return std::nullopt;
    return length == ssize_t{sizeof count} ? count : 0;
}

bool countChange(const std::wstring& directory) {
    const std::string path = toMultibyte(directory) + "/" + kWatchLockName;
    const Descriptor file = openAt(AT_FDCWD, path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK);
    if (!file) return errno == ENOENT;
    std::optional<std::uint64_t> count = readChangeCount(file.get());
    if (!count) return false;
    ++*count;
    return uninterrupted([&] { return ::pwrite(file.get(), &*count, sizeof *count, 0); }) ==
           ssize_t{sizeof *count};
}

// What a watcher left that did not end well is in the way. Only who holds the watcher's lock may
// call this.
Descriptor listenAt(const std::wstring& directory, const char* name) {
    const SocketAddress address(directory, name);
    Descriptor socket = makeSocket();
    if (!address || !socket) return {};
    ::unlinkat(address.directory(), name, 0);
    if (::bind(socket.get(), address.get(), SocketAddress::size()) != 0 ||
        ::fchmodat(address.directory(), name, 0600, 0) != 0 || ::listen(socket.get(), 64) != 0)
        return {};
    return socket;
}

Descriptor connectTo(const std::wstring& directory, const char* name) {
    const SocketAddress address(directory, name);
    Descriptor socket = makeSocket();
    if (!address || !socket || ::connect(socket.get(), address.get(), SocketAddress::size()) != 0)
        return {};
    return socket;
}

bool isTrustedPeer(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == 0 || peer.uid == ::geteuid());
}

}  // namespace fscanner
