#pragma once

#include "fscanner/export.h"

namespace fscanner {

class FsQuery;
class FsResultSetWriter;

/// Answers a query by walking the file systems, without a cache: local, remote
/// and other drives alike. Matches go to `writer` as they are found.
/// `timeoutMilliseconds` limits each local path's walk; remote ones have no limit.
/// Returns 0 when finished, -40 when the mount table cannot be read, -41 when a
/// walk ran out of time or was stopped by the observer (records already written
/// stay), -43 or -44 where it left something unanswered (see `FsCacheStatus`), or the
/// negative result of the writer where it refused a record. One query at a time in a process.
FSCANNER_EXPORT int fsScanQuery(FsResultSetWriter& writer, const FsQuery& query,
                                unsigned timeoutMilliseconds);

}  // namespace fscanner
