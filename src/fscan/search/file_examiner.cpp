#include "fscan/search/file_examiner.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "fscan/match/file_details.h"
#include "fscan/query/search_roots.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

/// Whether the error means that the file is gone, or a directory of its path was replaced by a
/// link or another file.
bool meansGone(int error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ESTALE;
}

}  // namespace

FileExaminer::~FileExaminer() {
    for (const Directory& directory : directories_)
        if (directory.descriptor >= 0) close(directory.descriptor);
}

/// Looks at the latest directories first. A new one takes the place of the oldest.
const FileExaminer::Directory& FileExaminer::enter(const std::wstring& path) {
    constexpr std::size_t count = std::tuple_size_v<decltype(directories_)>;
    for (std::size_t back = 0; back < count; ++back) {
        const Directory& known = directories_[(current_ + count - back) % count];
        if (known.path == path) return known;
    }
    current_ = (current_ + 1) % count;
    Directory& directory = directories_[current_];
    if (directory.descriptor >= 0) close(directory.descriptor);
    directory.path = path;
    directory.descriptor = fscanner::fsOpenDirectory(path.c_str());
    directory.error = directory.descriptor < 0 ? errno : 0;
    return directory;
}

FileExaminer::Found FileExaminer::examine(const std::wstring& directory, const char* name,
                                          struct stat& info) {
    const Directory& place = enter(directory);
    int error = place.error;
    if (error == 0 && fstatat(place.descriptor, name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        error = errno;
    if (error != 0) return meansGone(error) ? Found::gone : Found::unknown;
    return S_ISDIR(info.st_mode) ? Found::gone : Found::there;
}

const std::wstring& MatchPlace::directoryOf(const Match& match) {
    if (directory_.empty() || match.directory() != shown_) {
        shown_ = match.directory();
        directory_ = roots_.realOf(shown_);
    }
    return directory_;
}

bool DetailedMatches::take(const Match& match) {
    struct stat info {};
    const std::wstring& directory = place_.directoryOf(match);
    const auto found = examiner_.examine(directory, std::string(match.name()).c_str(), info);
    if (found == FileExaminer::Found::gone) {
        examiner_.leaveOut(found);
        return true;
    }
    FileDetails details =
        found == FileExaminer::Found::there ? FileDetails::of(info) : FileDetails::of(match.facts);
    details.directory = directory;
    Match detailed = match;
    detailed.details = &details;
    return to_.take(detailed);
}

}  // namespace fscan
