#pragma once

/// Everything that a host needs. Providers include fs/fs_provider.h as well.

#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_explain.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_resource_manager.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/fs_scan_observer.h"
#include "fscanner/fs/fs_text.h"
#include "fscanner/fs/fs_workers.h"
#include "fscanner/version.h"
