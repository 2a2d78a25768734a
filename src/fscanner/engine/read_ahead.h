#pragma once

#include <sys/stat.h>

#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fscanner/engine/stamp_trust.h"
#include "fscanner/fs/fs_workers.h"
#include "fscanner/platform/directory.h"

namespace fscanner {

/// What is done with a directory, besides reading it, while that is done ahead of the walk.
struct AheadWork {
    bool wanted = false;  ///< whether directories are read ahead at all
    bool stamps = false;  ///< a stamp is taken before it is read
    bool facts = false;   ///< its files are examined
    std::size_t deepest = std::numeric_limits<std::size_t>::max();  ///< nothing in such a branch
};

/// What examining an entry told.
struct EntryFacts {
    int error = 0;
    struct stat info {};
};

/// A directory that was opened and read.
struct ReadDirectory {
    Directory directory;
    DirectoryEntries entries;
    DirectoryStamp stamp;           ///< none where the walk read the directory itself
    std::vector<EntryFacts> facts;  ///< of entries that are no directories: the last one first
    std::size_t factsTaken = 0;
};

/// Which directories may be read before the walk comes to them. Called on any thread.
class AheadRules {
public:
    virtual ~AheadRules() = default;
    /// Whether the path matters. Without, `mayRead` gets an empty one.
    virtual bool needsPaths() const = 0;
    virtual bool mayRead(const std::wstring& path) const = 0;
};

/// Reads directories by the host's workers while the walk is elsewhere. The next ones in the order
/// of the walk come first. Bounds memory and descriptors. The walk's thread gets each directory
/// when it comes to it, and reads those itself that nobody has begun or that could not be read.
class ReadAhead {
public:
    struct Node;  ///< a directory that is known, but not visited yet

    /// A directory that was read, and what is known of those in it.
    struct Branch {
        ReadDirectory read;
        std::vector<Node*> children;  ///< that are planned: the next one last
        std::size_t unplanned = 0;    ///< the place in `entries` before which none is planned
        std::wstring path;            ///< with a final "/"; only where the rules need paths
        std::size_t depth = 0;        ///< 1 for the directory where the walk began
    };

    ReadAhead(FsWorkers& workers, AheadWork work, const AheadRules& rules);
    /// Waits for the tasks that have begun. Others will find nothing to do.
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    /// The walk has read this directory itself: makes what it holds known.
    void begin(Branch& branch);
    /// The walk is at the entry of this name, a directory. Returns its node, or null.
    Node* find(Branch& branch, std::string_view name);
    /// Moves what was read into `branch`. False: the walk has to read the directory itself.
    bool take(Node& node, Branch& branch);
    /// The walk does not enter that directory.
    void drop(Node& node);
    /// Closes the descriptor of a directory that the walk is in.
    void close(Branch& branch);
    /// The same, for one that the walk leaves.
    void end(Branch& branch);
    /// Closes what was read ahead, for lack of descriptors. False if there was nothing.
    bool giveBack();

private:
    class Shared;
    void submit(unsigned tasks);
    std::shared_ptr<Shared> shared_;
    FsWorkers& workers_;
    unsigned submitted_ = 0;
};

}  // namespace fscanner
