#pragma once

/// The shared helpers: matching, numbers and bits, strings and their encodings,
/// paths and temporary files, time, the owned string list and the boolean
/// evaluator. This header is the umbrella; each idea has a file of its own.

#include "fscanner/common/evaluator.h"
#include "fscanner/common/file_info.h"
#include "fscanner/common/numbers.h"
#include "fscanner/common/paths.h"
#include "fscanner/common/string_list.h"
#include "fscanner/common/strings.h"
#include "fscanner/common/time.h"
#include "fscanner/common/utf8.h"
#include "fscanner/common/wildcard.h"
