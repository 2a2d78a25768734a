#pragma once

#include <functional>
#include <memory>
#include <random>
#include <set>

#include "engine/temp_tree.h"
#include "fscanner/engine/cache_directory.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_resultset.h"
#include "support/child_process.h"
#include "support/fault_scale.h"
#include "support/listener.h"

namespace fscanner {

/// Whether sanitizers run: they need time, and some of the calls that are to fail.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

/// A random number below `bound`.
inline unsigned below(std::mt19937& random, unsigned bound) {
    return static_cast<unsigned>(random() % bound);
}

/// The result of one query, and the notes that its observer got.
struct Answer {
    int status = 0;
    std::vector<std::string> paths;  // sorted
    bool toldOfGaps = false;         // from the observer
    unsigned long long walked = 0;   // directories

    /// Whether no failure was reported.
    bool claimsToBeWhole() const { return status == 0 && !toldOfGaps; }
};

/// A tree, a cache for it, and a host that asks, each in directories of its own.
/// Temporary and lock files also go where a test can count them.
class FaultHost {
public:
    explicit FaultHost(const std::filesystem::path& parent = memoryDirectory());
    ~FaultHost();
    FaultHost(FaultHost&&) = delete;

    /// Makes directories with `files` files each, three levels deep.
    void plant(unsigned directories, unsigned files) const;
    /// Calls `ask` while the planted tree is different: with files and directories that are gone
    /// afterwards, and with one of each elsewhere.
    void askBeforeChanges(const std::function<void()>& ask) const;
    std::vector<std::string> truth() const { return walkFresh(tree.path()); }
    static std::vector<std::string> walkFresh(const std::string& root);

    std::unique_ptr<FsProvider> provider(bool compressed = false) const;
    void describe(FsQuery& query, const wchar_t* criteria = L"") const;
    /// Makes the query search these directories of the tree.
    void describeParts(FsQuery& query, const std::vector<std::string>& names) const;
    /// Asks one query through a provider of its own.
    Answer ask(unsigned age = kDay, const wchar_t* criteria = L"", bool compressed = false) const;
    Answer ask(const FsQuery& query, unsigned age, bool compressed = false) const;
    /// Asks one query. The results are in a file, or null, and sorted if there is a key.
    std::unique_ptr<FsResultSetReader> askForFile(int& status, unsigned sortKey = 0) const;
    /// In the order of the reader.
    static std::vector<std::string> pathsOf(FsResultSetReader& reader);
    /// Becomes fscan with a cache of its own; its two outputs go to files.
    [[noreturn]] void becomeFscan(std::vector<std::string> arguments, const std::string& output,
                                  const std::string& errors) const;
    /// The lines of a file, sorted.
    static std::vector<std::string> linesOf(const std::string& path);
    /// Starts again without a cache.
    void forget() const;
    std::wstring cacheDirectory() const { return toWide(cache); }
    /// The files left beside the cache: temporary and lock files.
    std::vector<std::string> leftovers() const;

    TempTree tree;
    TempTree place;
    std::string cache = place.path("cache");
    bool verifies = false;  ///< whether its providers compare the cache with the disk
};

/// The open descriptors of this process.
std::set<int> openDescriptors();

}  // namespace fscanner
