#pragma once

/// The shared helpers: numbers and bits, strings, paths and temporary files,
/// time, the owned string list and the boolean evaluator. This header is the
/// umbrella; each idea has a file of its own beside it.

#include "fscanner/common/evaluator.h"
#include "fscanner/common/numbers.h"
#include "fscanner/common/paths.h"
#include "fscanner/common/string_list.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
