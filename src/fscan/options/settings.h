#pragma once

#include "fscanner/fs/fs_config.h"

namespace fscan {

/// The settings of the configuration files, read once, at the first call. What is wrong
/// with a file is said then.
const fscanner::FsSettings& settings();

}  // namespace fscan
