#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fscanner/engine/tree_changes.h"
#include "fscanner/platform/descriptor.h"

namespace fscanner {

// How a search asks the watcher of its cache: docs/formats/watch-socket.md. Both are processes of
// one machine and, but for root, of one user; each checks all that the other says.

/// The names of the socket and of the watcher's lock in the cache directory.
inline constexpr const char* kWatchSocketName = "fscanner.socket";
inline constexpr const char* kWatchLockName = "fscanner.watch";

/// Tells one directory from every other, on whatever mount it is seen.
struct WatchPlace {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t mount = 0;  ///< the kernel's number, which no other mount of the machine has
    bool reused = false;      ///< before Linux 6.8, a later mount may get the number of one gone
    bool operator==(const WatchPlace&) const = default;
};
/// Nothing where the path leads to no directory, or the system does not number mounts.
std::optional<WatchPlace> watchPlaceOf(const wchar_t* path);

struct WatchQuestion {
    std::wstring table;  ///< the cache's table of directories
    std::wstring path;
    WatchPlace place;  ///< of the path, as the search sees it
};

/// The largest messages, in bytes with the length before them.
constexpr std::size_t kLongestQuestion = 64 * 1024;
constexpr std::size_t kLongestAnswer = 16 * 1024 * 1024;

/// A message with its length before it; empty if it were too long.
std::string encode(const WatchQuestion& question);
/// Nothing: the tree is not watched, or not all of its changes are known.
std::string encode(const std::optional<TreeChanges>& answer);
/// False for a message that is not whole and right. Without the length before it.
bool decode(std::string_view message, WatchQuestion& question);
bool decode(std::string_view message, std::optional<TreeChanges>& answer);

/// The length of the message that begins with these bytes, with the length itself; nothing if
/// there are too few to tell.
std::optional<std::size_t> messageLength(std::string_view bytes);
constexpr std::size_t kLengthBytes = 4;

/// How often the cache was changed by searches that did not have the watcher's word for what they
/// changed: they may have seen something else than the watcher. `file` is its lock's. Nothing on
/// failure.
std::optional<std::uint64_t> readChangeCount(int file);
/// Counts one more, before the change, if there is a watcher of the cache in `directory`. To be
/// called by whoever may change the cache. False on failure: then it must not be changed.
bool countChange(const std::wstring& directory);

/// A socket that others reach, or reaches another, by a name in a directory. Empty, with errno, on
/// failure. Neither waits, nor do the sockets.
Descriptor listenAt(const std::wstring& directory, const char* name);
Descriptor connectTo(const std::wstring& directory, const char* name);
/// Whether the process at the other end runs for root or for this user.
bool isTrustedPeer(int socket);

}  // namespace fscanner
