#pragma once

#include "fscanner/export.h"

namespace fscanner {

class FsQuery;
class FsResultSetWriter;

/// Answers a query by walking the file systems, without a cache. Local, remote and other
/// drives are treated alike. Each match goes to `writer`, which stays the caller's, as it is
/// found. `timeoutMilliseconds` limits the walk of each local path; other paths have no limit.
///
/// Returns 0 when the search is finished, or:
/// -40 if the mount table cannot be read, memory ran out or the writer threw;
/// -41 if a walk ran out of time, or the observer stopped it;
/// -43 if a path of the query leads to no drive (the other paths were searched);
/// -44 if the criteria asks for file types and the `file` program cannot be run;
/// the writer's negative result if it refused a record and the search succeeded otherwise.
///
/// Records that were written stay written. Throws nothing. Several threads may call it at once.
FSCANNER_EXPORT int fsScanQuery(FsResultSetWriter& writer, const FsQuery& query,
                                unsigned timeoutMilliseconds);

}  // namespace fscanner
