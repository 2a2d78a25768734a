#include "fscanner/fs/fs_resultset.h"

namespace fscanner {

FsResultSetWriter::~FsResultSetWriter() = default;
FsResultSetReader::~FsResultSetReader() = default;
FsResultSet::~FsResultSet() = default;

}  // namespace fscanner
