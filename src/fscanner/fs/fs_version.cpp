#include "fscanner/fs/fs_inspect.h"
#include "fscanner/version.h"

namespace fscanner {

const char* fsVersion() {
    return FSCANNER_VERSION;
}

}  // namespace fscanner
