#pragma once

/// The version of these headers; `fsVersion()` tells the loaded library's. The build
/// reads it from here.
#define FSCANNER_VERSION_MAJOR 0
#define FSCANNER_VERSION_MINOR 2
#define FSCANNER_VERSION_PATCH 0

#define FSCANNER_VERSION_TEXT_(major, minor, patch) #major "." #minor "." #patch
#define FSCANNER_VERSION_TEXT(major, minor, patch) FSCANNER_VERSION_TEXT_(major, minor, patch)
/// "MAJOR.MINOR.PATCH"
#define FSCANNER_VERSION \
    FSCANNER_VERSION_TEXT(FSCANNER_VERSION_MAJOR, FSCANNER_VERSION_MINOR, FSCANNER_VERSION_PATCH)
