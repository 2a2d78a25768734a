#pragma once

/// The debug log, by the name that hosts include it by.

#include "fscanner/common/debug.h"
