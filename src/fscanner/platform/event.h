#pragma once

#include <memory>

namespace fscanner {

/// One change of the file system: the path concerned (owned) and an action code.
///
/// The action 160 marks an invalid event. An event is valid when it has an entry or
/// another action.
class FS_Event {
public:
    static constexpr unsigned INVALID_ACTION = 160;

    FS_Event() = default;
    /// Invalid, whatever the action, when `entry` is null or cannot be copied.
    FS_Event(const wchar_t* entry, unsigned action);
    /// A source without an entry gives an invalid event.
    FS_Event(const FS_Event& other);
    FS_Event& operator=(const FS_Event& other);
    ~FS_Event() = default;

    void setInvalid();
    bool isValid() const { return entry_ || action_ != INVALID_ACTION; }
    unsigned getAction() const { return action_; }
    /// Owned by the event; null when it has none.
    const wchar_t* getEntry() const { return entry_.get(); }

private:
    std::unique_ptr<wchar_t[]> entry_;
    unsigned action_ = INVALID_ACTION;
};

}  // namespace fscanner
