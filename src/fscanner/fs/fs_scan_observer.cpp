#include "fscanner/fs/fs_scan_observer.h"

#include <atomic>

namespace fscanner {

namespace {

std::atomic<FsScanObserver*> currentObserver = nullptr;

}  // namespace

FsScanObserver::~FsScanObserver() = default;

bool FsScanObserver::progress(const FsScanProgress&) {
    return true;
}

void FsScanObserver::skipped(const wchar_t*, FsSkipReason, int) {}

void FsScanObserver::undecided(const FsFileInfo&) {}

void FsScanObserver::finished(const FsScanProgress&) {}

void FsScanObserver::fromCache(const wchar_t*, unsigned) {}

bool FsScanObserver::waiting(unsigned) {
    return true;
}

void FsScanObserver::verified(const FsVerification&) {}

bool FsScanObserver::enters(const wchar_t*) {
    return true;
}

FsScanObserver* fsSetScanObserver(FsScanObserver* observer) {
    return currentObserver.exchange(observer);
}

FsScanObserver* scanObserver() {
    return currentObserver;
}

}  // namespace fscanner
