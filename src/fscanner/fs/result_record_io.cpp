#include "fscanner/fs/result_record_io.h"

#include <memory>

#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_resultset.h"
#include "fscanner/fs/fs_serializator_file.h"
#include "fscanner/platform/abstract_file.h"

namespace fscanner {

namespace {

// Leaves the file as reading past its end does, with the end flag set.
void skipToEnd(AbstractFile& file) {
    char past;
    file.seek(0, SEEK_FROM_END);
    file.read(&past, 1);
}

std::unique_ptr<FsFileInfo> load(AbstractFile& file) {
    auto record = std::make_unique<FsFileInfo>();
    FsSerializator_OnFile from(&file, false);
    if (record->loadObject(from) == 0) return record;
    skipToEnd(file);
    return nullptr;
}

bool compareBy(FsSortKey key, void* a, void* b, unsigned op, bool caseSensitive) {
    auto* left = static_cast<FsFileInfo*>(a);
    auto* right = static_cast<FsFileInfo*>(b);
    return left->compare(*right, static_cast<int>(key), op, caseSensitive);
}

}  // namespace

int fs_read(AbstractFile* file, void** out) {
    *out = nullptr;
    if (file == nullptr) return 0;
    *out = load(*file).release();
    return *out != nullptr ? 1 : 0;
}

int fs_write(AbstractFile* file, void* record) {
    if (file == nullptr || record == nullptr) return 0;
    FsSerializator_OnFile to(file, false);
    return static_cast<FsFileInfo*>(record)->saveObject(to) == 0 ? 1 : 0;
}

bool fs_readCurrent(AbstractFile* file, void** out) {
    *out = nullptr;
    if (file == nullptr) return false;
    const long position = file->tell();
    auto record = load(*file);
    if (!record || file->eof()) return false;
    file->seek(position, SEEK_FROM_START);
    *out = record.release();
    return true;
}

void fs_free(void* record) {
    delete static_cast<FsFileInfo*>(record);
}

bool fs_compare_path(void* a, void* b, unsigned op, bool caseSensitive) {
    return compareBy(FS_SORT_PATH, a, b, op, caseSensitive);
}

bool fs_compare_file(void* a, void* b, unsigned op, bool caseSensitive) {
    return compareBy(FS_SORT_NAME, a, b, op, caseSensitive);
}

bool fs_compare_pathname(void* a, void* b, unsigned op, bool caseSensitive) {
    return compareBy(FS_SORT_PATHNAME, a, b, op, caseSensitive);
}

bool fs_compare_size(void* a, void* b, unsigned op, bool caseSensitive) {
    return compareBy(FS_SORT_SIZE, a, b, op, caseSensitive);
}

}  // namespace fscanner
