// The provider over the cache: trees of local drives are answered from the disk while
// they are young enough. It uses the library's public headers alone, and shows the
// order in which a cache is used.

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

// How often to read what was built, when others come between and remove it.
constexpr int kTries = 3;

// The time that is left for waits, in milliseconds.
class Patience {
public:
    explicit Patience(int milliseconds) : limit_(milliseconds) {}
    // At least one try.
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

    // One query, as it was asked.
    struct Question {
        FsResultSetWriter& writer;
        const FsQuery& query;
        unsigned maximumAge;
        unsigned timeout;
        bool keepsPlan;

        int ask(FS_Cache& cache) const;
    };
    int runOnce(const Question& question) const;
    int read(const Question& question, const Patience& patience) const;
    int buildAndRead(const Question& question, const Patience& patience) const;
    int runAlone(const Question& question) const;
    std::unique_ptr<FS_Cache> makeCache() const;

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
    const Question question{watched, query, maximumAge, timeout, keepsPlan};
    int status = runOnce(question);
    const bool mayHeal = status == FS_CACHE_UNUSABLE || status == FS_CACHE_FAILURE;
    if (mayHeal && !watched.written() && prepareDirectory()) status = runOnce(question);
    return status;
}

// Most queries change nothing, and are answered beside others. One that needs younger trees
// has the cache for itself while it builds them, but not while it gives its answer: that
// takes as long as the writer likes.
int CacheProvider::runOnce(const Question& question) const {
    const Patience patience(settings_.wait);
    int status = read(question, patience);
    if (status != FS_CACHE_NEEDS_CHANGE) return status;
    status = buildAndRead(question, patience);
    for (int i = 1; i < kTries && status == FS_CACHE_NEEDS_CHANGE; ++i)
        status = buildAndRead(question, Patience(settings_.wait));
    return status == FS_CACHE_NEEDS_CHANGE ? runAlone(question) : status;
}

int CacheProvider::read(const Question& question, const Patience& patience) const {
    const auto cache = makeCache();
    if (const int status = cache->lockShared(patience.left())) return status;
    int status = cache->create(0, FS_CACHE_OPEN);
    if (status == FS_CACHE_SUCCESS) status = question.ask(*cache);
    cache->close();
    cache->unlock();
    return status;
}

int CacheProvider::buildAndRead(const Question& question, const Patience& patience) const {
    const auto cache = makeCache();
    if (const int status = cache->lock(patience.left())) return status;
    int status = cache->create(0, FS_CACHE_OPEN_ALWAYS);
    if (status == FS_CACHE_SUCCESS)
        status = cache->refresh(question.query, question.timeout, question.maximumAge);
    if (status == FS_CACHE_SUCCESS) status = cache->share(Patience(settings_.wait).left());
    if (status == FS_CACHE_SUCCESS) status = question.ask(*cache);
    cache->close();
    cache->unlock();
    return status;
}

int CacheProvider::runAlone(const Question& question) const {
    const auto cache = makeCache();
    if (const int status = cache->lock(Patience(settings_.wait).left())) return status;
    int status = cache->create(0, FS_CACHE_OPEN_ALWAYS);
    if (status == FS_CACHE_SUCCESS) status = question.ask(*cache);
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
    return cache;
}

// The cache takes the two limits in the other order.
int CacheProvider::Question::ask(FS_Cache& cache) const {
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
