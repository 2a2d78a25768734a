#pragma once

#include <array>

#include "engine/cache_user.h"
#include "fscanner/common/utf8.h"
#include "fscanner/fs/fs_direct.h"
#include "fscanner/store/sums_file.h"

namespace fscanner {

/// The files of `CacheUser`'s cache; index files and then the checksums come last.
inline constexpr std::array<const char*, 15> kCacheFiles = {
    "dirs.dat",          "dirs.pxx",          "dirs_idx.dat",       "dirs.counter",
    "files.dat",         "files.pxx",         "files_idx.dat",      "dirs.unread",
    "dirs.stamps",       "dirs_ID.idx",       "files_FILENAME.idx", "files_PATHID.idx",
    "dirs_PATHNAME.idx", "dirs_PARENTID.idx", "dirs.sums"};
inline constexpr std::size_t kDirectoriesOffsets = 1, kFilesOffsets = 5, kFirstIndexFile = 9,
                             kSums = 14;
/// The query that uses the index of names.
inline constexpr std::size_t kExactName = 3;

/// A small tree with a good cache of it, which is restored before each damage, and
/// queries whose answers never change.
class CacheImage {
public:
    explicit CacheImage(bool compressed, int files = 300) : cache(compressed) {
        plantFiles(files);
        addQuery("", L"");
        addQuery("d3", L"[FILENAME]==\"*7*\" && [SIZE]!=7");
        addQuery("d1/e", L"path([PATHID],[FILENAME])!=\"x\"");
        addQuery("", L"[FILENAME]==\"" + std::wstring(100, L'n') + L"13\"");
        CollectingWriter writer;
        EXPECT_EQ(cache.query(writer, *queries[0]), 0);
        EXPECT_EQ(writer.sorted(), answers[0]);
        for (const char* name : kCacheFiles) earlier_.push_back(readWholeFile(path(name)));
        // Removed records, unused slots and a second generation of IDs.
        EXPECT_EQ(cache.query(writer, *queries[1], kAllOld), 0);
        for (const char* name : kCacheFiles) good_.push_back(readWholeFile(path(name)));
    }

    std::string path(const std::string& name) const { return cache.directory().path(name); }
    const std::string& good(std::size_t file) const { return good_[file]; }
    /// The files before a part of the tree was built again.
    const std::string& earlier(std::size_t file) const { return earlier_[file]; }

    /// Restores every file, and removes all others.
    void restore() const {
        for (const auto& entry : std::filesystem::directory_iterator(path("")))
            std::filesystem::remove_all(entry.path());
        for (std::size_t i = 0; i < good_.size(); ++i)
            writeWholeFile(path(kCacheFiles[i]), good_[i]);
    }
    void overwrite(std::size_t file, std::size_t at, const std::string& bytes) const {
        overwriteFile(path(kCacheFiles[file]), at, bytes);
    }
    void cut(std::size_t file, std::size_t length) const {
        std::filesystem::resize_file(path(kCacheFiles[file]), length);
    }

    /// Gives the checksums the values for the files' present bytes.
    void sumUp() const {
        SumsFile sums(toWide(path(kCacheFiles[kSums])));
        for (std::size_t i = 0; i < kSums; ++i)
            EXPECT_TRUE(sums.takeUp(toWide(path(kCacheFiles[i]))));
        EXPECT_TRUE(sums.write());
        EXPECT_TRUE(sums.replace());
    }

    /// Whether something lies in the place of a file that must not be removed.
    bool isBlocked() const {
        return std::any_of(kCacheFiles.begin(), kCacheFiles.end(),
                           [this](const char* name) { return isBlocked(path(name)); });
    }
    void unblock() const {
        for (const char* name : kCacheFiles)
            if (isBlocked(path(name))) std::filesystem::remove_all(path(name));
    }

    /// The status; `found` tells whether the answer is the right one.
    int ask(std::size_t which, bool& found, unsigned age = kDay) const {
        CollectingWriter writer;
        const int status = cache.query(writer, *queries[which], age);
        found = writer.sorted() == answers[which];
        return status;
    }

    TempTree tree{memoryDirectory()};
    CacheUser cache;
    std::vector<std::unique_ptr<FsQuery>> queries;
    std::vector<std::vector<std::string>> answers;

private:
    static bool isBlocked(const std::string& path) {
        const auto status = std::filesystem::symlink_status(path);
        return std::filesystem::exists(status) && !std::filesystem::is_regular_file(status);
    }
    // Long names, so that the files grow by more than one step, in directories of two levels.
    void plantFiles(int count) const {
        for (int i = 0; i < count; ++i) {
            const std::string directory = "d" + std::to_string(i % 5) + (i % 3 ? "/e/" : "/");
            tree.file(directory + std::string(100, 'n') + std::to_string(i),
                      static_cast<std::size_t>(i % 50));
        }
    }
    void addQuery(const std::string& below, const std::wstring& criteria) {
        queries.push_back(std::make_unique<FsQuery>());
        queries.back()->addIncludePath((L"*:" + tree.wide(below)).c_str(), true);
        queries.back()->setQuery(criteria.c_str());
        CollectingWriter writer;
        EXPECT_EQ(fsScanQuery(writer, *queries.back(), kMinute), 0);
        EXPECT_FALSE(writer.paths.empty());
        answers.push_back(writer.sorted());
    }

    std::vector<std::string> earlier_;
    std::vector<std::string> good_;
};

}  // namespace fscanner
