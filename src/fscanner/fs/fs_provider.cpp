#include "fscanner/fs/fs_provider.h"

namespace fscanner {

FsProvider::~FsProvider() = default;
FsMonitor::~FsMonitor() = default;

}  // namespace fscanner
