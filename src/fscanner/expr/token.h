#pragma once

/// The criteria language: from text to tokens, to a compiled tree, to a verdict
/// on a record; and the commands that extend it. This header is the umbrella;
/// each idea has a file of its own beside it.

#include "fscanner/expr/analyzer.h"
#include "fscanner/expr/command.h"
#include "fscanner/expr/criteria.h"
#include "fscanner/expr/lexer.h"
#include "fscanner/expr/tree.h"
