#pragma once

#include <memory>
#include <string>

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

/// Registers `deleteFile_CleanupHandler` for a copy of `name` that lasts as long
/// as the process. The result removes the registration again.
void* addTempFileHandler(const std::string& name);
void removeTempFileHandler(void* registration);

/// A file that is readable by its owner alone, and removed with its owner object
/// or by the cleanup handlers.
class TemporaryFile {
public:
    /// Makes the file anew, whatever had the name. Null when it cannot be made.
    static std::unique_ptr<TemporaryFile> create(const std::wstring& name);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

private:
    explicit TemporaryFile(std::string name);
    std::string name_;
    void* registration_;
    bool created_ = false;
};

}  // namespace fscanner
