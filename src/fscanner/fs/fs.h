#pragma once

#include "fscanner/export.h"

/// The entry points: get a provider, ask it, read the results.
///
///     std::unique_ptr<FsProvider> provider(fsLoadProvider(nullptr));
///     FsQuery query;
///     query.addIncludePath(L"$all::/srv", true);
///     query.setQuery(L"[FILENAME]==\"*.h\"");
///     std::unique_ptr<FsResultSetReader> results(fsExecuteQuery(provider.get(), query, 60, 30));
///     results->moveFirst();
///     for (FsFileInfo file; results->getNext(file);) ...
///
/// Nothing throws into the host. See docs/embedding.md.

namespace fscanner {

class FsProvider;
class FsQuery;
class FsResultSetReader;

/// Loads a provider plug-in; null `name` means the configured one. Null when it
/// cannot be loaded, see the debug log. The caller deletes it.
FSCANNER_EXPORT FsProvider* fsLoadProvider(const char* name);

/// Asks a provider. `maximumAgeMinutes` bounds the age of cached answers,
/// `timeoutSeconds` the work. Returns the matches, which the caller deletes: in a
/// temporary file (call `moveFirst` first), or with Ex in memory. Null for a null
/// provider. A failure is told by `FsProvider::lastStatus`; what was found until
/// then is in the result.
FSCANNER_EXPORT FsResultSetReader* fsExecuteQuery(FsProvider* provider, const FsQuery& query,
                                                  int maximumAgeMinutes, int timeoutSeconds);
FSCANNER_EXPORT FsResultSetReader* fsExecuteQueryEx(FsProvider* provider, const FsQuery& query,
                                                    int maximumAgeMinutes, int timeoutSeconds);

}  // namespace fscanner
