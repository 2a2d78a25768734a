#pragma once

#include "fscanner/platform/named_sync.h"

namespace fscanner {

struct SemaphoreRecord;
extern template class NamedSync<SemaphoreRecord>;

/// A counting semaphore between the threads of this process. A new one has no unit: the
/// first `wait` blocks until a `release` makes one available.
class LinuxSemaphore : public NamedSync<SemaphoreRecord> {
public:
    using NamedSync::NamedSync;
};

}  // namespace fscanner
