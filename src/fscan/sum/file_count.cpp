#include "fscan/sum/file_count.h"

#include <fmt/format.h>

#include "fscan/options/options.h"
#include "fscan/output/output.h"

namespace fscan {

// What the cache holds may be old, and does not tell hard links apart: it is used only by who asks
// for answers that are not checked.
FileCount::FileCount(const Options& options, bool cached)
    : allocated_(options.allocated),
      usesCache_(cached && !options.verify && options.maximumAge > 0 && !allocated_ &&
                 !options.followLinks),
      linked_(options.followLinks) {}

bool FileCount::lacks(const FileDetails& file) const {
    if (allocated_) return true;
    if (file.examined) return linked_.asks(file);
    // A scan that could not examine a file stores a 0; of a directory the cache has no size.
    const bool isDirectory = (file.attributes & fscanner::FS_ATTR_DIRECTORY) != 0;
    return !usesCache_ || isDirectory || file.attributes == 0;
}

bool FileCount::admits(const FileDetails& file) {
    if (!file.examined) usesCache_ ? usedCache_ = true : (++unexamined_, true);
    return linked_.isFirst(file);
}

void FileCount::tell(bool quiet) const {
    if (unexamined_ > 0)
        complain(fmt::format("{} files could not be examined: their sizes may be old or unknown",
                             unexamined_));
    if (usedCache_ && !quiet)
        complain(
            "note: sizes are those of the cache, and a file with several links counts with "
            "each; without --max-age they are examined");
}

}  // namespace fscan
