#pragma once

/// File types by the system's `file` program. This header is the umbrella:
/// `FileTypeChecker` asks; a directory's answers (directory_types) wait in a
/// `FileTypeCache`; the program is run (child_process, file_program) and its output
/// cut (file_output) by the files beside it.

#include "fscanner/filetype/directory_names.h"
#include "fscanner/filetype/file_type_cache.h"
#include "fscanner/filetype/file_type_checker.h"
