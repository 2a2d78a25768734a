#pragma once

#include <string>

#include "fscanner/platform/abstract_sync.h"

namespace fscanner {

/// A lock or semaphore between the threads of this process: objects of one name share
/// one `Record`, which lives as long as they do. The waits are cancellation points.
///
/// Its members are in sync_registry.h, and instantiated beside each kind of record.
template <typename Record>
class NamedSync : public AbstractSync {
public:
    /// A null name makes an object whose every operation fails.
    explicit NamedSync(const char* name);
    ~NamedSync() override;
    NamedSync(const NamedSync&) = delete;
    NamedSync& operator=(const NamedSync&) = delete;

    int release() override;
    int wait() override;
    /// Lasts whole seconds, and nearly always one more (see `syncDeadline`).
    int wait(long milliseconds) override;

    /// Whether this object was the first of its name.
    bool created() const { return created_; }

private:
    std::string name_;
    Record* record_ = nullptr;
    bool created_ = false;
};

}  // namespace fscanner
