#pragma once

/// Marks what hosts and plug-ins may use; everything else is hidden.
#define FSCANNER_EXPORT __attribute__((visibility("default")))
/// Marks what is nobody's business in a class that is exported.
#define FSCANNER_HIDDEN __attribute__((visibility("hidden")))
