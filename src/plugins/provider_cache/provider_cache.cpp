// The provider that uses the cache. It answers queries about trees of local drives from the cache
// while they are young enough. It needs only the library's public headers, and is an example of
// the order of calls on a cache.

#include <algorithm>
#include <chrono>
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

// Between the building of a tree and the query another process may remove the tree. So many
// attempts are made before the query runs under the exclusive lock.
constexpr int kTries = 3;

// The time limit of several waits together, in milliseconds.
class WaitLimit {
public:
    explicit WaitLimit(int milliseconds) : limit_(milliseconds) {}
    // The time left; at least 1, so that a wait tries once.
    int left() const {
        using std::chrono::milliseconds;
        const auto passed = std::chrono::steady_clock::now() - start_;
        const auto left = milliseconds(limit_) - std::chrono::duration_cast<milliseconds>(passed);
        return static_cast<int>(std::max<milliseconds::rep>(left.count(), 1));
    }

private:
    int limit_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Passes records on, and remembers whether there was any.
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
    int execute(FsResultSetWriter& writer, const FsQuery& query, unsigned maximumAge,
                unsigned timeout);

    // The arguments of one query.
    struct Request {
        FsResultSetWriter& writer;
        const FsQuery& query;
        unsigned maximumAge;
        unsigned timeout;
        bool keepsPlan;

        int run(FS_Cache& cache) const;
    };
    int runOnce(const Request& request) const;
    int read(FS_Cache& cache, const Request& request, const WaitLimit& wait) const;
    int buildAndRead(FS_Cache& reader, const Request& request, const WaitLimit& wait) const;
    int runExclusive(const Request& request) const;
    std::unique_ptr<FS_Cache> makeCache() const;

    FsCacheSettings settings_;
    int lastStatus_ = FS_CACHE_SUCCESS;
};

bool CacheProvider::prepareDirectory() {
    if (settings_.directory.empty()) settings_.directory = fsDefaultCacheDirectory();
    return fsPrepareCacheDirectory(settings_.directory.c_str());
}

// Exceptions stop here: the host's interface reports failures by a status.
int CacheProvider::executeQuery(FsResultSetWriter& writer, const FsQuery& query,
                                unsigned maximumAge, unsigned timeout) {
    lastStatus_ = FS_CACHE_FAILURE;
    try {
        lastStatus_ =
            execute(writer, query, settings_.fresh ? FS_CACHE_REBUILD : maximumAge, timeout);
    } catch (const std::exception&) {
        // The cache's object was destroyed, which released its locks.
    }
    return lastStatus_;
}

// A failed query is repeated once if no record was written yet. The first attempt has marked a
// damaged cache, so the second one makes it anew; it also creates a removed directory again.
int CacheProvider::execute(FsResultSetWriter& writer, const FsQuery& query, unsigned maximumAge,
                           unsigned timeout) {
    if (!prepareDirectory()) return FS_CACHE_FAILURE;
    // A host that wants its results in memory is likely to repeat its queries.
    const bool keepsPlan = dynamic_cast<FsResultSetWriter_OnVector*>(&writer) != nullptr;
    WatchedWriter watched(writer);
    const Request request{watched, query, maximumAge, timeout, keepsPlan};
    int status = runOnce(request);
    const bool mayRepeat = status == FS_CACHE_UNUSABLE || status == FS_CACHE_FAILURE;
    if (mayRepeat && !watched.written() && prepareDirectory()) status = runOnce(request);
    return status;
}

// Most queries change nothing and share the cache with others. A query that needs younger trees
// takes the exclusive lock only while it builds them. It writes its results under the shared lock,
// because the host's writer may take any time.
int CacheProvider::runOnce(const Request& request) const {
    const WaitLimit wait(settings_.wait);
    const auto reader = makeCache();
    int status = read(*reader, request, wait);
    if (status != FS_CACHE_NEEDS_CHANGE) return status;
    status = buildAndRead(*reader, request, wait);
    for (int i = 1; i < kTries && status == FS_CACHE_NEEDS_CHANGE; ++i)
        status = buildAndRead(*reader, request, WaitLimit(settings_.wait));
    return status == FS_CACHE_NEEDS_CHANGE ? runExclusive(request) : status;
}

int CacheProvider::read(FS_Cache& cache, const Request& request, const WaitLimit& wait) const {
    if (const int status = cache.lockShared(wait.left())) return status;
    int status = cache.create(0, FS_CACHE_OPEN);
    if (status == FS_CACHE_SUCCESS) status = request.run(cache);
    cache.close();
    cache.unlock();
    return status;
}

int CacheProvider::buildAndRead(FS_Cache& reader, const Request& request,
                                const WaitLimit& wait) const {
    const auto cache = makeCache();
    if (const int status = cache->lock(wait.left())) return status;
    int status = cache->create(0, FS_CACHE_OPEN_ALWAYS);
    cache->continueFrom(reader);
    if (status == FS_CACHE_SUCCESS)
        status = cache->refresh(request.query, request.timeout, request.maximumAge);
    if (status == FS_CACHE_SUCCESS) status = cache->share(WaitLimit(settings_.wait).left());
    if (status == FS_CACHE_SUCCESS) status = request.run(*cache);
    cache->close();
    cache->unlock();
    return status;
}

int CacheProvider::runExclusive(const Request& request) const {
    const auto cache = makeCache();
    if (const int status = cache->lock(WaitLimit(settings_.wait).left())) return status;
    int status = cache->create(0, FS_CACHE_OPEN_ALWAYS);
    if (status == FS_CACHE_SUCCESS) status = request.run(*cache);
    cache->close();
    cache->compact();
    cache->unlock();
    return status;
}

std::unique_ptr<FS_Cache> CacheProvider::makeCache() const {
    const FsCacheTableNames names = fsCacheTableNames(settings_.compressed);
    auto cache = std::make_unique<FS_Cache>(
        names.directories.c_str(), names.files.c_str(), settings_.directory.c_str(),
        settings_.monitored && !settings_.fresh, settings_.compressed, true);
    cache->setSizeLimit(settings_.limit);
    cache->setVerification(settings_.verify && !settings_.fresh);
    return cache;
}

// FS_Cache takes the two limits in the opposite order of FsProvider.
int CacheProvider::Request::run(FS_Cache& cache) const {
    return keepsPlan ? cache.executeQueryEx(writer, query, timeout, maximumAge)
                     : cache.executeQuery(writer, query, timeout, maximumAge);
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
