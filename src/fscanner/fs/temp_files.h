#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>

#include "fscanner/platform/descriptor.h"

namespace fscanner {

/// Temporary result files: their names, and their removal when the host stops
/// the process through its cleanup handlers.

/// Where names come from; only tests change it.
struct TempNameSource {
    char* (*libraryName)(char* buffer);  ///< `tmpnam`, or what stands for it; may use the buffer
    const char* directory;               ///< searched first when that has no name
    const char* fallbackDirectory;
};
TempNameSource& tempNameSource();

/// A name for a temporary file, empty when there is none.
struct TempName {
    std::string path;
    bool created = false;  ///< whether the file is there already, empty
};

/// A name that no file has, from the C library, else from `getTempFile_Default`.
TempName chooseTempName();

/// Creates, empty and exclusively, the first free "fsq_" + n (0 to 19999) in the
/// current directory, else in "/tmp/", and returns its name, released with
/// delete[]. Null when there is none.
char* getTempFile_Default();

/// Unless `code` is 0: logs the call and unlinks the file `name` (`char*`).
int deleteFile_CleanupHandler(int code, void* name);

/// A regular file by its name, removed only as long as the name stands for it.
class RemovableFile {
public:
    /// None, until it is created or identified.
    explicit RemovableFile(std::string name) : name_(std::move(name)) {}
    const std::string& name() const { return name_; }
    /// Makes the file, for its owner alone. False, with errno, where that fails or the
    /// name is taken. No signal is handled by this thread between that and the knowledge.
    bool create();
    /// Looks which file the name stands for now; none where that is no regular file.
    void identify();
    /// Whether the name still stands for it. Signal handlers may ask.
    bool isThere() const;
    void remove();

private:
    std::string name_;
    dev_t device_ = 0;
    ino_t inode_ = 0;  // 0: none
};

/// Registers a handler that calls `deleteFile_CleanupHandler` for the file, if it is
/// there by then. It stays registered until the last owner is gone.
std::shared_ptr<RemovableFile> addTempFileHandler(const std::string& name);

/// A file that is readable by its owner alone, and gone with this object. It has no name,
/// so that nothing is left of it however the process ends. Only where the process could
/// not open it again, as without /proc, it keeps one, which the cleanup handlers remove.
class TemporaryFile {
public:
    /// Null, with errno, when it cannot be made.
    static std::unique_ptr<TemporaryFile> create(const std::string& directory);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// By which this process opens it.
    const std::string& path() const { return path_; }
    const std::string& directory() const { return directory_; }

private:
    explicit TemporaryFile(const std::string& directory) : directory_(directory) {}
    bool adopt(Descriptor file);
    bool createNamed();

    std::string directory_;
    std::string path_;
    Descriptor file_;                       // of what has no name
    std::shared_ptr<RemovableFile> named_;  // registered
};

}  // namespace fscanner
