#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <utility>

#include "fscanner/platform/descriptor.h"

namespace fscanner {

// Temporary result files: their names, and their removal by the cleanup handlers of the host.

/// How names are chosen. Only tests change it.
struct TempNameSource {
    char* (*libraryName)(char* buffer);  ///< `tmpnam`; may write to the buffer
    const char* directory;               ///< searched for a free name if `libraryName` gives none
    const char* fallbackDirectory;       ///< searched last
};
TempNameSource& tempNameSource();

/// A name for a temporary file; empty if none was found.
struct TempName {
    std::string path;
    bool created = false;  ///< whether an empty file of this name was created already
};

/// An unused name from the C library, or else from `getTempFile_Default`.
TempName chooseTempName();

/// Creates an empty file under the first free name "fsq_" + n (0 to 19999) in the current
/// directory, or else in "/tmp/". Returns its name, which the caller releases with delete[].
/// Null if no file can be created.
char* getTempFile_Default();

/// Logs the call and unlinks the file `name` (a `char*`). Does nothing if `code` is 0.
int deleteFile_CleanupHandler(int code, void* name);

/// A regular file, remembered by name, device and inode. It is removed only if its name still
/// means the same file, because another user may have put another file there.
class RemovableFile {
public:
    /// Stands for no file until `create` or `identify` is called.
    explicit RemovableFile(std::string name) : name_(std::move(name)) {}
    const std::string& name() const { return name_; }
    /// Creates the file, for its owner alone, and identifies it. False, with errno, if that
    /// fails or the name is taken. This thread handles no signal between both steps, so a
    /// cleanup handler never misses a file that was created.
    bool create();
    /// Remembers the file that the name means now; none if that is not a regular file.
    void identify();
    /// Whether the name still means the remembered file. Safe in signal handlers.
    bool isThere() const;
    /// Unlinks the file if it is there.
    void remove();

private:
    std::string name_;
    dev_t device_ = 0;
    ino_t inode_ = 0;  // 0: no file
};

/// Registers a cleanup handler that calls `deleteFile_CleanupHandler` if the file is there.
/// The handler stays registered until the last owner of the result is gone.
std::shared_ptr<RemovableFile> addTempFileHandler(const std::string& name);

/// A file that only its owner can read, removed with this object. It has no name, so nothing of
/// it is left however the process ends. It keeps a name only if the process could not open it
/// again otherwise, as without /proc; the cleanup handlers remove such a file.
class TemporaryFile {
public:
    /// Creates the file in `directory`. Null, with errno, if that fails.
    static std::unique_ptr<TemporaryFile> create(const std::string& directory);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    /// The path by which this process can open the file.
    const std::string& path() const { return path_; }
    const std::string& directory() const { return directory_; }

private:
    explicit TemporaryFile(const std::string& directory) : directory_(directory) {}
    bool adopt(Descriptor file);
    bool createNamed();

    std::string directory_;
    std::string path_;
    Descriptor file_;                       // keeps a file without a name alive
    std::shared_ptr<RemovableFile> named_;  // a file with a name, registered
};

}  // namespace fscanner
