#pragma once

#include <algorithm>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "fscanner/discovery/path_resolver.h"
#include "fscanner/platform/paths.h"

/// Path resolution: from a query's path entries to pairs of path and drive. What is behind
/// the larger operations stands in files of its own: real paths (platform/paths), the text of an
/// entry and its drives (path_resolver), where drives begin (mount_map).

namespace fscanner {

/// Calls `seen` for each element, from the last to the first, and removes those for which it
/// returns true. The order of the others stays. True if any was removed. Elements are moved, so
/// pointers to heap texts that they own stay valid.
template <typename T, typename Seen>
bool removeFromEnd(std::vector<T>& list, Seen seen) {
    std::vector<T> kept;
    for (auto element = list.rbegin(); element != list.rend(); ++element) {
        if (!seen(*element)) kept.push_back(std::move(*element));
    }
    std::reverse(kept.begin(), kept.end());
    const bool removed = kept.size() != list.size();
    list = std::move(kept);
    return removed;
}

/// Removes all but the last of the elements with equal keys. `keyOf` may return views of heap
/// texts that the element owns. True if any was removed.
template <typename T, typename KeyOf>
bool removeEarlierDuplicates(std::vector<T>& list, KeyOf keyOf) {
    std::set<decltype(keyOf(list.front()))> keys;
    return removeFromEnd(list,
                         [&](const T& element) { return !keys.insert(keyOf(element)).second; });
}

/// A text as part of a key, so that null differs from empty.
inline std::pair<bool, std::wstring_view> textKey(const wchar_t* text) {
    return text ? std::pair(true, std::wstring_view(text)) : std::pair(false, std::wstring_view());
}

/// One path of a chain of ancestors, and its last component.
struct PathAncestor {
    std::wstring path;
    std::wstring name;
};

/// The operations on path entries and (path, drive) pairs. Stateless; lists
/// named as results are appended to.
class PathHelper {
public:
    static constexpr const wchar_t* PathSeparator = L"/";

    // ---- One path -----------------------------------------------------------

    /// The absolute path without ".", ".." and repeated "/"; with `resolveLinks`
    /// also without symbolic links. Nothing when it is longer than 1023 bytes
    /// (any number with `setLongPaths`), when a component cannot be read, or after more than 32
    /// links.
    static std::optional<std::wstring> realPath(const wchar_t* path, bool resolveLinks);
    static std::optional<std::string> realPath(const char* path, bool resolveLinks);
    /// The real path, else the absolute path with its links, else the text itself.
    static std::wstring buildRealPath(const wchar_t* path);
    /// The path without a final "/", unless it is the root.
    static std::wstring buildResolvedPath(const wchar_t* path);

    /// The components, without separators.
    static std::vector<std::wstring> structured_path_decomposer(std::wstring_view path);

    // ---- Paths and drives ---------------------------------------------------

    /// The drive's mount directory: its name without the final ":".
    static std::wstring_view driveText(const DriveInfo& drive);
    /// Index of the drive that holds `path`, whatever its type: the longest mount
    /// point, the last of equals; or -1.
    static int pathLocation(std::wstring_view path, const std::vector<DriveInfo>& drives);
    /// Whether some drive of the mask has a name that starts `path`, as characters.
    static bool isValidPath(const std::vector<DriveInfo>& drives, unsigned typeMask,
                            const wchar_t* path, bool flag);

    /// Sorts every entry of `paths` into pairs. `drives` are those to search;
    /// `includeFileSystems` and `excludeFileSystems` the mount points of the searched
    /// and of all other drives. Appends to
    /// - `resolved`: (path, drive) for the drive that holds the path;
    /// - `parentResolved`: (mount point, drive) for drives below a recursive path;
    /// - `excluded`: pairs that lie on a drive which is not searched;
    /// - `unresolved`: entries that gave no pair at all, as written, without a drive.
    /// No list gets a pair twice; a repeated pair keeps the wider recursive flag.
    /// Links are resolved where `mayTouch` lets them be read.
    static void pathResolver(const std::vector<PathInfo>& paths,
                             const std::vector<DriveInfo>& drives,
                             const std::vector<PathInfo>& includeFileSystems,
                             const std::vector<PathInfo>& excludeFileSystems,
                             std::vector<PathDrive>& parentResolved,
                             std::vector<PathDrive>& resolved, std::vector<PathDrive>& excluded,
                             std::vector<PathDrive>& unresolved,
                             const LinkGuard& mayTouch = touchesAll);

    // ---- Lists --------------------------------------------------------------

    /// Appends `src`; with `skipPresent`, only entries that no equal entry precedes.
    static void appendPathList(std::vector<PathInfo>& dst, const std::vector<PathInfo>& src,
                               bool skipPresent);
    /// Merges `src` into `dst`. What is present is skipped; with `widen`, it becomes
    /// recursive when the skipped one is.
    static void pathDriveAccumulator(std::vector<PathDrive>& dst, const std::vector<PathDrive>& src,
                                     bool widen);
    /// The pairs to scan, in order: both lists merged, enclosing paths first, without
    /// those that the scan of an enclosing pair reaches anyway. Replaces `out`.
    /// `drives`: all of them, searched or not, as `normaliseDriveList` leaves them.
    static void accumulatePairs(const std::vector<DriveInfo>& drives,
                                const std::vector<PathDrive>& parentResolved,
                                const std::vector<PathDrive>& resolved,
                                std::vector<PathDrive>& out);
    /// Of equal entries the last one stays. True when any was removed.
    static bool removePathListDuplicate(std::vector<PathInfo>& list);
    /// Appends the entries of `a` whose text is not in `b`.
    static void differencePathList(const std::vector<PathInfo>& a, const std::vector<PathInfo>& b,
                                   std::vector<PathInfo>& out);
    /// Appends the paths of the pairs whose drive type is in `typeMask`.
    static void extractPathList(const std::vector<PathDrive>& pairs, unsigned typeMask,
                                std::vector<PathInfo>& out);
    /// Appends one recursive entry per drive: its mount directory.
    static void buildPathList(const std::vector<DriveInfo>& drives, std::vector<PathInfo>& out);

    // ---- Offered to hosts; nothing in fscanner uses what follows ------------

    /// Copies `source` with its %NAME% references expanded into `destination`, which
    /// has room for `limit` characters; what does not fit is cut. 0, or -1 for a null
    /// argument, an empty source or no room.
    static int expand_path_variable(const wchar_t* source, wchar_t* destination, unsigned limit);
    /// The path and its ancestors, innermost first: "/a/b" gives ("/a/b", "b"),
    /// ("/a", "a"), ("/", "/").
    static std::vector<PathAncestor> pathReducer(std::wstring_view path);
    /// `relatePaths`.
    static PathRelation path_components_analyzer(std::wstring_view path, std::wstring_view other);
    /// How `path` lies to the drive's mount directory.
    static PathRelation pathFilterByDrive(std::wstring_view path, const DriveInfo& drive);
    /// Takes "DRIVE:PATH" apart and tells whether the path lies on the drive or the
    /// drive below the path, by their texts. 1 and both results, or 0.
    static int unix_path_resolver(const PathInfo& pathInfo, PathInfo& resolved,
                                  PathInfo& parentResolved);
    /// Whether `path` is kept: no excluded mount point covers it, or an included one
    /// that is at least as long does. Only what follows the first ":" counts.
    static bool fileSystemPathChecker(const wchar_t* path, const std::vector<PathInfo>& includeList,
                                      const std::vector<PathInfo>& excludeList);
    /// Removes the pairs whose paths are not kept.
    static void fileSystemPathDriveListPruning(std::vector<PathDrive>& pairs,
                                               const std::vector<PathInfo>& includeList,
                                               const std::vector<PathInfo>& excludeList);
    /// Appends, as recursive paths, the mount points that a scan of `pair` must not
    /// enter. `drives` as for `accumulatePairs`.
    static void buildExcludeList(const std::vector<DriveInfo>& drives, const PathDrive& pair,
                                 std::vector<PathInfo>& excluded);
    /// Appends the drives that hold the pair's path or lie inside it.
    static void reduceDriveList(const std::vector<DriveInfo>& drives,
                                std::vector<DriveInfo>& reduced, const PathDrive& pair);
    /// `pathDriveAccumulator` for paths alone.
    static void pathAccumulator(std::vector<PathInfo>& dst, const std::vector<PathInfo>& src,
                                bool widen);
    /// Whether an entry has the same text.
    static bool checkforPathInfo(const std::vector<PathInfo>& list, const PathInfo& pathInfo);
    /// Whether a pair has the same text, file system and drive type.
    static bool checkforPathDriveList(const std::vector<PathDrive>& list, const PathDrive& pair);
};

}  // namespace fscanner
