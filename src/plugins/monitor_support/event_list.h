#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fscanner {

class FS_Queue;

namespace monitor {

/// What the kernel is asked to tell, by either interface: each has the same bits for it.
inline constexpr std::uint32_t kWatchedChanges =
    0x2 /*MODIFY*/ | 0x4 /*ATTRIB*/ | 0x8 /*CLOSE_WRITE*/ | 0x40 /*MOVED_FROM*/ |
    0x80 /*MOVED_TO*/ | 0x100 /*CREATE*/ | 0x200 /*DELETE*/;
inline constexpr std::uint32_t kOnDirectory = 0x40000000;

/// The `FsEventAction` bits of a mask that the kernel told.
unsigned actionOf(std::uint32_t mask);

/// The events of one `take`, in their order. What is told again of a path soon after is added to
/// its first event: a file that is written tells of its creation, its content and its times.
class EventList {
public:
    void add(std::string_view path, unsigned action);
    /// Adds all to `queue`, and returns their number.
    int sendTo(FS_Queue& queue) const;

private:
    struct Event {
        std::string path;
        unsigned action;
    };
    // The places of recent events in `events_`, by a hash of their paths.
    static constexpr std::size_t kRecent = 256;

    std::vector<Event> events_;
    std::array<std::size_t, kRecent> recent_{};
};

}  // namespace monitor
}  // namespace fscanner
