// The provider over the cache: trees of local drives are answered from the disk while
// they are young enough. It uses the library's public headers alone, and shows the
// order in which a cache is used.

#include <exception>
#include <memory>
#include <string>

#include "fscanner/engine/cache.h"
#include "fscanner/engine/cache_directory.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_resultset_vector.h"

namespace fscanner {

namespace {

// How long to wait for the other processes that use the cache.
constexpr int kLockMilliseconds = 60000;

// Passes records on and remembers whether there was one.
class WatchedWriter : public FsResultSetWriter {
public:
    explicit WatchedWriter(FsResultSetWriter& to) : to_(to) {}
    int addRecord(const wchar_t* path, const wchar_t* name, unsigned long long size,
                  unsigned attributes) override {
        written_ = true;
        return to_.addRecord(path, name, size, attributes);
    }
    int addRecord(const FsFileInfo& record) override {
        written_ = true;
        return to_.addRecord(record);
    }
    int close() override { return to_.close(); }
    bool written() const { return written_; }

private:
    FsResultSetWriter& to_;
    bool written_ = false;
};

class CacheProvider : public FsProvider {
public:
    explicit CacheProvider(const FsConfig* config) {
        if (config) settings_ = fsCacheSettings(*config);
    }

    const char* name() const override { return "provider_cache"; }
    int lastStatus() const override { return lastStatus_; }
    bool setOption(const char* key, const char* value) override {
        return settings_.set(key, value);
    }
    int executeQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned maximumAge,
                     unsigned timeout) override;

private:
    bool prepareDirectory();
    int ask(FsResultSetWriter& writer, const FsQuery& query, unsigned maximumAge, unsigned timeout);
    int runOnce(FsResultSetWriter& writer, bool keepsPlan, const FsQuery& query,
                unsigned maximumAge, unsigned timeout);

    FsCacheSettings settings_;
    int lastStatus_ = FS_CACHE_SUCCESS;
};

bool CacheProvider::prepareDirectory() {
    if (settings_.directory.empty()) settings_.directory = fsDefaultCacheDirectory();
    return fsPrepareCacheDirectory(settings_.directory.c_str());
}

// A host need not know how its provider was built: nothing is thrown at it.
int CacheProvider::executeQuery(FsResultSetWriter& writer, const FsQuery& query,
                                unsigned maximumAge, unsigned timeout) {
    lastStatus_ = FS_CACHE_FAILURE;
    try {
        lastStatus_ = ask(writer, query, settings_.fresh ? FS_CACHE_REBUILD : maximumAge, timeout);
    } catch (const std::exception&) {
        // The cache's object went with the exception, and gave up its locks.
    }
    return lastStatus_;
}

// Tried once more before an answer was given: a cache that turned out damaged is marked
// by then, and opening it makes it anew; a directory that was removed is made again.
int CacheProvider::ask(FsResultSetWriter& writer, const FsQuery& query, unsigned maximumAge,
                       unsigned timeout) {
    if (!prepareDirectory()) return FS_CACHE_FAILURE;
    // Results in memory are what a host asks for that repeats its queries.
    const bool keepsPlan = dynamic_cast<FsResultSetWriter_OnVector*>(&writer) != nullptr;
    WatchedWriter watched(writer);
    int status = runOnce(watched, keepsPlan, query, maximumAge, timeout);
    const bool mayHeal = status == FS_CACHE_UNUSABLE || status == FS_CACHE_FAILURE;
    if (mayHeal && !watched.written() && prepareDirectory())
        status = runOnce(watched, keepsPlan, query, maximumAge, timeout);
    return status;
}

int CacheProvider::runOnce(FsResultSetWriter& writer, bool keepsPlan, const FsQuery& query,
                           unsigned maximumAge, unsigned timeout) {
    const FsCacheTableNames names = fsCacheTableNames(settings_.compressed);
    FS_Cache cache(names.directories.c_str(), names.files.c_str(), settings_.directory.c_str(),
                   settings_.monitored && !settings_.fresh, settings_.compressed, true);
    if (const int status = cache.lock(kLockMilliseconds)) return status;
    int status = cache.create(kLockMilliseconds, FS_CACHE_OPEN_ALWAYS);
    if (status == FS_CACHE_SUCCESS) {
        // The cache takes the two limits in the other order.
        status = keepsPlan ? cache.executeQueryEx(writer, query, timeout, maximumAge)
                           : cache.executeQuery(writer, query, timeout, maximumAge);
        cache.close();
        cache.compact();
    }
    cache.unlock();
    return status;
}

}  // namespace

FsProvider* createProvider(const FsConfig* config) {
    try {
        return new CacheProvider(config);
    } catch (...) {
        return nullptr;
    }
}

}  // namespace fscanner
