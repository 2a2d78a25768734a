#include "fscanner/fs/fs_serializator.h"

namespace fscanner {

FsSerializator::~FsSerializator() = default;

}  // namespace fscanner
