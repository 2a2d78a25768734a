#include "fscanner/fs/temp_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>
#include <new>
#include <utility>

#include "fscanner/common/debug.h"
#include "fscanner/fs/fs_resource_manager.h"
#include "fscanner/platform/paths.h"

namespace fscanner {

namespace {

constexpr int kNamesPerDirectory = 20000;

std::string createIn(const std::string& directory) {
    for (int i = 0; i < kNamesPerDirectory; ++i) {
        std::string name = directory + "fsq_" + std::to_string(i);
        // An existing file is skipped, and never emptied.
        if (createExclusively(name.c_str())) return name;
    }
    return {};
}

char* arrayCopy(const std::string& text) {
    char* copy = new (std::nothrow) char[text.size() + 1];
    if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

// Adapts `deleteFile_CleanupHandler`, which returns a value, to the type of a handler. To call it
// through a cast pointer would be undefined.
void deleteFileThunk(int code, void* context) {
    const auto* const file = static_cast<const RemovableFile*>(context);
    if (file->isThere()) deleteFile_CleanupHandler(code, const_cast<char*>(file->name().c_str()));
}

// The registered files. Never destroyed, because handlers may also be called while static
// objects are destroyed.
struct Registered {
    std::mutex guard;
    std::list<RemovableFile> files;
};
Registered& registered() {
    static auto& instance = *new Registered;
    return instance;
}

void forget(RemovableFile* registration) {
    auto& [guard, files] = registered();
    const std::lock_guard lock(guard);
    FsResourceManager::getInstance()->removeCleanupHandler(deleteFileThunk, registration);
    // A running invocation may still read it, so it is kept for good.
    if (FsResourceManager::isInvoking()) return;
    files.remove_if([&](const RemovableFile& file) { return &file == registration; });
}

// Blocks all signals in this thread for a scope.
class SignalBlocker {
public:
    SignalBlocker() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    SignalBlocker(const SignalBlocker&) = delete;
    SignalBlocker& operator=(const SignalBlocker&) = delete;
    ~SignalBlocker() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_{};
};

}  // namespace

TempNameSource& tempNameSource() {
    // `tmpnam` only makes up a name. That is safe because the file is later created with O_EXCL.
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

void RemovableFile::identify() {
    struct stat info {};
    const bool known = ::lstat(name_.c_str(), &info) == 0 && S_ISREG(info.st_mode);
    device_ = info.st_dev;
    inode_ = known ? info.st_ino : 0;
}

bool RemovableFile::create() {
    const SignalBlocker blocker;
    if (!createExclusively(name_.c_str())) return false;
    identify();
    return true;
}

bool RemovableFile::isThere() const {
    struct stat info {};
    return inode_ != 0 && ::lstat(name_.c_str(), &info) == 0 && info.st_dev == device_ &&
           info.st_ino == inode_;
}

void RemovableFile::remove() {
    if (isThere()) ::unlink(name_.c_str());
    inode_ = 0;
}

std::shared_ptr<RemovableFile> addTempFileHandler(const std::string& name) {
    auto& [guard, files] = registered();
    std::unique_lock lock(guard);
    RemovableFile* const file = &files.emplace_front(name);
    FsResourceManager::getInstance()->addCleanupHandler(deleteFileThunk, file);
    lock.unlock();  // `forget` takes the lock if there is no memory for the shared pointer
    return {file, forget};
}

std::unique_ptr<TemporaryFile> TemporaryFile::create(const std::string& directory) {
    std::unique_ptr<TemporaryFile> file(new TemporaryFile(directory));
    Descriptor unnamed(::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file->adopt(std::move(unnamed)) && !file->createNamed()) file.reset();
    return file;
}

TemporaryFile::~TemporaryFile() {
    if (named_ == nullptr) return;
    named_->remove();
}

// Keeps `file` open if it can be opened again through /proc. That is needed because mapped files
// are opened by a path, and more than once.
bool TemporaryFile::adopt(Descriptor file) {
    file = aboveStandardStreams(std::move(file));
    if (!file) return false;
    std::string path = "/proc/self/fd/" + std::to_string(file.get());
    if (!openRegularFile(path.c_str(), OpenMode::existing, 0)) return false;
    path_ = std::move(path);
    file_ = std::move(file);
    return true;
}

// For file systems without O_TMPFILE, where the file is unlinked at once, and for systems without
// /proc, where it keeps its name.
bool TemporaryFile::createNamed() {
    std::string name = directory_ + "/fsq_XXXXXX";
    const SignalBlocker blocker;
    Descriptor file(::mkostemp(name.data(), O_CLOEXEC));
    if (!file) return false;
    RemovableFile made(name);
    made.identify();
    if (adopt(std::move(file))) {
        made.remove();
        return true;
    }
    named_ = addTempFileHandler(name);
    named_->identify();
    path_ = std::move(name);
    return true;
}

}  // namespace fscanner
