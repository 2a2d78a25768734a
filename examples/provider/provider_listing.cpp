// A complete provider: it lists directories itself, without the library's walk. It shows
// the duties of a provider, not how to be fast.
//
// Install it in the configured "home", and load it by its name, "provider_listing".

#include <fscanner/fs/fs_fileinfo.h>
#include <fscanner/fs/fs_inspect.h>
#include <fscanner/fs/fs_provider.h>
#include <fscanner/fs/fs_query.h>
#include <fscanner/fs/fs_resultset.h>
#include <fscanner/fs/fs_text.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

namespace {

using namespace fscanner;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr int UNUSABLE = -40;
constexpr int TIMED_OUT = -41;

// The directory of an entry, without a drive group such as "$all::", which is ignored here.
std::string directoryOf(const PathInfo& entry) {
    std::wstring text = entry.getPathName();
    if (const auto group = text.find(L"::"); text[0] == L'$' && group != text.npos)
        text.erase(0, group + 2);
    std::string path;
    fsToMultibyte(text.c_str(), path);
    return path;
}

class ListingProvider : public FsProvider {
public:
    const char* name() const override { return "provider_listing"; }
    int lastStatus() const override { return lastStatus_; }
    bool setOption(const char*, const char*) override { return false; }

    int executeQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned /*maximumAge*/,
                     unsigned timeout) override try {
        const auto filter = FsRecordFilter::create(query.getQuery(), query.getCaseSensitive());
        if (!filter) return lastStatus_ = 0;  // a criteria with an error matches nothing
        deadline_ = Clock::now() + std::chrono::milliseconds(timeout);
        lastStatus_ = 0;
        for (const PathInfo& entry : query.getIncludedPaths()) {
            if (lastStatus_ == 0) list(entry, query, *filter, writer);
        }
        return lastStatus_;
    } catch (const std::exception&) {
        return lastStatus_ = UNUSABLE;  // no exception may reach the library
    }

private:
    void list(const PathInfo& entry, const FsQuery& query, FsRecordFilter& filter,
              FsResultSetWriter& writer) {
        const auto options = fs::directory_options::skip_permission_denied;
        std::error_code error;
        auto at = fs::recursive_directory_iterator(directoryOf(entry), options, error);
        for (; at != fs::recursive_directory_iterator(); at.increment(error)) {
            if (Clock::now() > deadline_) {
                lastStatus_ = TIMED_OUT;
                return;
            }
            if (!entry.getRecursive()) at.disable_recursion_pending();
            if (at->is_directory(error) && !at->is_symlink(error)) continue;
            add(at->path(), query, filter, writer);
        }
    }

    static void add(const fs::path& path, const FsQuery& query, FsRecordFilter& filter,
                    FsResultSetWriter& writer) {
        std::wstring directory, name;
        fsToWide(path.parent_path().c_str(), directory);
        fsToWide(path.filename().c_str(), name);
        for (const PathInfo& excluded : query.getExcludedPaths()) {
            if (fsPathMatches(excluded.getPathName(), directory.c_str(), excluded.getRecursive(),
                              query.getCaseSensitive()))
                return;
        }
        FsFileInfo file;
        file.setFilePath(directory.c_str());
        file.setFileName(name.c_str());
        if (!filter.matches(file)) return;
        file.updateInfo();
        writer.addRecord(file);
    }

    int lastStatus_ = 0;
    Clock::time_point deadline_;
};

}  // namespace

// The function that the library calls to make the provider.
fscanner::FsProvider* fscanner::createProvider(const FsConfig*) {
    return new ListingProvider;
}
