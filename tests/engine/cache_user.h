#pragma once

#include <gmock/gmock.h>
#include <memory>

#include "engine/temp_tree.h"
#include "fscanner/engine/cache.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

/// A cache directory, used in the same order as a provider does.
class CacheUser {
public:
    explicit CacheUser(bool compressed = false, bool monitor = false)
        : compressed_(compressed), monitor_(monitor) {}

    std::unique_ptr<FS_Cache> make() const {
        return std::make_unique<FS_Cache>(L"dirs", L"files", directory_.wide().c_str(), monitor_,
                                          compressed_, true);
    }
    std::unique_ptr<FS_Cache> open() const {
        auto cache = make();
        EXPECT_EQ(cache->create(0, FS_CACHE_OPEN_ALWAYS), 0);
        return cache;
    }
    /// Runs one query as a provider does.
    int query(FsResultSetWriter& writer, const FsQuery& query, unsigned age = kDay,
              unsigned timeout = kMinute, bool kept = false) const {
        const auto cache = make();
        cache->setSizeLimit(limit);
        cache->setVerification(verify);
        if (const int status = cache->lock()) return status;
        int status = cache->create(0, FS_CACHE_OPEN_ALWAYS);
        if (status == 0)
            status = kept ? cache->executeQueryEx(writer, query, timeout, age)
                          : cache->executeQuery(writer, query, timeout, age);
        cache->close();
        cache->compact();
        cache->unlock();
        return status;
    }
    bool isMarked() const { return std::filesystem::exists(directory_.path("dirs.cuflag")); }
    const TempTree& directory() const { return directory_; }
    std::string counter() const { return readWholeFile(directory_.path("dirs.counter")); }
    /// Sets the counter of a closed cache, as if so many directories had been given an ID.
    void setCounter(const std::string& bytes) const {
        SumsFile sums(directory_.wide("dirs.sums"));
        writeWholeFile(directory_.path("dirs.counter"), bytes);
        EXPECT_THAT(std::vector({sums.load(), sums.takeUp(directory_.wide("dirs.counter")),
                                 sums.write(), sums.replace()}),
                    testing::Each(true));
    }

    /// All files of the cache.
    std::uintmax_t bytes() const {
        std::uintmax_t sum = 0;
        for (const auto& entry : std::filesystem::directory_iterator(directory_.path()))
            sum += entry.file_size();
        return sum;
    }

    unsigned long long limit = 0;
    bool verify = false;

private:
    TempTree directory_;
    bool compressed_;
    bool monitor_;
};

}  // namespace fscanner
