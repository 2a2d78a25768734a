#pragma once

/// The debug log. Hosts include it by this name.

#include "fscanner/common/debug.h"
