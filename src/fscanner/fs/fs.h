#pragma once

#include "fscanner/export.h"

/// The entry points: load a provider, run a query, read the results.
///
///     std::unique_ptr<FsProvider> provider(fsLoadProvider(nullptr));
///     FsQuery query;
///     query.addIncludePath(L"$all::/srv", true);
///     query.setQuery(L"[FILENAME]==\"*.h\"");
///     std::unique_ptr<FsResultSetReader> results(fsExecuteQuery(provider.get(), query, 60, 30));
///     results->moveFirst();
///     for (FsFileInfo file; results->getNext(file);) ...
///
/// No exception reaches the host. Several threads may run queries, each with a provider of its own.
/// See docs/embedding.md.

namespace fscanner {

class FsProvider;
class FsQuery;
class FsResultSetReader;

/// Loads the provider plug-in `name`, a file name without ".so"; a null name means the
/// configured provider. Reads the configuration, and turns on large-file and long-path
/// support where it says so. Returns null if the plug-in cannot be loaded; the debug log says
/// why. The caller owns the provider and deletes it.
FSCANNER_EXPORT FsProvider* fsLoadProvider(const char* name);

/// Runs a query. A cached answer may be `maximumAgeMinutes` old. `timeoutSeconds` limits the
/// time of a scan. Both limits wrap at 32 bits once they are converted to seconds and to
/// milliseconds.
///
/// Returns a reader over the matches, which the caller owns and deletes. `fsExecuteQuery`
/// keeps the matches in a temporary file: call `moveFirst` before the first `getNext`.
/// `fsExecuteQueryEx` keeps them in memory. Returns null for a null provider, or without
/// memory. If the query fails, the reader still holds what was found until then;
/// `FsProvider::lastStatus` tells what happened.
FSCANNER_EXPORT FsResultSetReader* fsExecuteQuery(FsProvider* provider, const FsQuery& query,
                                                  int maximumAgeMinutes, int timeoutSeconds);
FSCANNER_EXPORT FsResultSetReader* fsExecuteQueryEx(FsProvider* provider, const FsQuery& query,
                                                    int maximumAgeMinutes, int timeoutSeconds);

}  // namespace fscanner
