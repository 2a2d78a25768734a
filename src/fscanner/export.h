#pragma once

/// Marks what hosts and plug-ins may use; everything else is hidden.
#define FSCANNER_EXPORT __attribute__((visibility("default")))
