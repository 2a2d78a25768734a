#include "fscanner/fs/temp_files.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <forward_list>
#include <new>
#include <utility>

#include "fscanner/common/paths.h"
#include "fscanner/common/utf8.h"
#include "fscanner/fs/debug.h"
#include "fscanner/fs/fs_resource_manager.h"

namespace fscanner {

namespace {

constexpr int NAMES_PER_DIRECTORY = 20000;

std::string createIn(const std::string& directory) {
    for (int i = 0; i < NAMES_PER_DIRECTORY; ++i) {
        std::string name = directory + "fsq_" + std::to_string(i);
        // What exists is skipped even if it cannot be read, and never emptied.
        if (createExclusively(name.c_str())) return name;
    }
    return {};
}

char* arrayCopy(const std::string& text) {
    char* copy = new (std::nothrow) char[text.size() + 1];
    if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

// A handler returns nothing; calling through a cast function type is undefined.
void deleteFileThunk(int code, void* name) {
    deleteFile_CleanupHandler(code, name);
}

// Names stay where they are for as long as the process runs: a handler may be
// called at any time, also while static objects are destroyed.
char* keepForever(const std::string& name) {
    static auto& names = *new std::forward_list<std::string>;
    return names.emplace_front(name).data();
}

}  // namespace

TempNameSource& tempNameSource() {
    // `tmpnam` only names a file; whoever writes it creates it exclusively.
    static TempNameSource source{std::tmpnam, "./", "/tmp/"};
    return source;
}

TempName chooseTempName() {
    char buffer[L_tmpnam];
    const char* unused = tempNameSource().libraryName(buffer);
    if (unused != nullptr) return {unused, false};
    const std::unique_ptr<char[]> name(getTempFile_Default());
    return name ? TempName{name.get(), true} : TempName{};
}

char* getTempFile_Default() {
    try {
        std::string name = createIn(tempNameSource().directory);
        if (name.empty()) name = createIn(tempNameSource().fallbackDirectory);
        return name.empty() ? nullptr : arrayCopy(name);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

int deleteFile_CleanupHandler(int code, void* name) {
    if (code == 0) return 0;
    const char* path = static_cast<const char*>(name);
    debug("Cleanup handler invoked (code: %d), deleting temp file: %s\n", code, path);
    return ::unlink(path);
}

void* addTempFileHandler(const std::string& name) {
    void* kept = keepForever(name);
    FsResourceManager::getInstance()->addCleanupHandler(deleteFileThunk, kept);
    return kept;
}

void removeTempFileHandler(void* registration) {
    FsResourceManager::getInstance()->removeCleanupHandler(deleteFileThunk, registration);
}

std::unique_ptr<TemporaryFile> TemporaryFile::create(const std::wstring& name) {
    std::unique_ptr<TemporaryFile> file(new TemporaryFile(toMultibyte(name)));
    ::unlink(file->name_.c_str());
    // Registered before it is there: a signal may come in between.
    file->created_ = createExclusively(file->name_.c_str());
    if (!file->created_) file.reset();
    return file;
}

TemporaryFile::TemporaryFile(std::string name)
    : name_(std::move(name)), registration_(addTempFileHandler(name_)) {}

TemporaryFile::~TemporaryFile() {
    if (created_) ::unlink(name_.c_str());
    removeTempFileHandler(registration_);
}

}  // namespace fscanner
