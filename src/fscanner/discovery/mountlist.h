#pragma once

/// The mount table: its entries, its reader, and the opening of placeholders.
/// This header is the umbrella; each idea has a file of its own beside it.

#include "fscanner/discovery/mount_access.h"
#include "fscanner/discovery/mount_entry.h"
#include "fscanner/discovery/mount_table.h"
