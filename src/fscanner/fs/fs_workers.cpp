#include "fscanner/fs/fs_workers.h"

#include <atomic>

namespace fscanner {

namespace {

std::atomic<FsWorkers*> currentWorkers = nullptr;

}  // namespace

FsWorkers::~FsWorkers() = default;

FsWorkers* fsSetWorkers(FsWorkers* workers) {
    return currentWorkers.exchange(workers);
}

FsWorkers* scanWorkers() {
    return currentWorkers;
}

}  // namespace fscanner
