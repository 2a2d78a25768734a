#include <gmock/gmock.h>

#include <algorithm>
#include <cwchar>

#include "fixtures.h"

namespace fscanner {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

PathDrive pairOf(const std::string& path, const std::string& mount, DriveType type = DRIVE_LOCAL,
                 const wchar_t* fileSystem = L"ext4") {
    return {pathsOf({path})[0], DriveInfo(toWide(mount + ":").c_str(), type, fileSystem)};
}

std::vector<std::string> exclusions(const std::vector<DriveInfo>& drives, const PathDrive& pair) {
    std::vector<PathInfo> excluded;
    PathHelper::buildExcludeList(drives, pair, excluded);
    return show(excluded);
}

TEST(PathMatch, CoversByEntryAndPrefersTheLongestAndTheFirstOfEquals) {
    const std::vector<PathInfo> list = pathsOf({"/data+", "/only", "/w*/x+"});
    EXPECT_TRUE(checkPathList(L"/DATA", list, false, false));
    EXPECT_FALSE(checkPathList(L"/DATA", list, true, false));
    EXPECT_TRUE(checkPathList(L"/only", list, true, false));
    EXPECT_FALSE(checkPathList(L"/only", list, true, true));
    EXPECT_TRUE(checkPathList(L"/www/x/deep", list, true, true));
    EXPECT_FALSE(checkPathList(L"/data", {PathInfo()}, true, false));

    const std::vector<PathInfo> nested = pathsOf({"/a+", "/a/?+", "/a/b+", "/a/b/c", "/+"});
    EXPECT_EQ(checkPathListEx(L"/a/b/c", nested, true), 3);
    EXPECT_EQ(checkPathListEx(L"/a/b/c/d", nested, true), 1);
    EXPECT_EQ(checkPathListEx(L"/A/b", nested, true), 4);
    EXPECT_EQ(checkPathListEx(L"/A/b", nested, false), 1);
    EXPECT_EQ(checkPathListEx(L"x", nested, true), -1);
    const std::vector<PathDrive> pairs = {pairOf("/+", "/"), pairOf("/a+", "/a", DRIVE_REMOTE)};
    EXPECT_EQ(checkPathDriveListEx(L"/a/x", pairs, mdLocalDriveGroup, true), 0);
    EXPECT_EQ(checkPathDriveListEx(L"/a/x", pairs, mdAllDriveGroup, true), 1);
    EXPECT_EQ(checkPathDriveListEx(L"/b", pairs, mdRemoteDriveGroup, true), -1);
}

TEST(ExcludeList, HoldsOtherFileSystemsBelowThePath) {
    const std::vector<DriveInfo> drives = drivesOf(
        "a / ext4\nb /home ext4\nc /proc proc\nd /usr vfat\ne /usr/local ext4\n"
        "f /usr/localised xfs\nh:/ /nas ext4\n");
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"/+", {"/proc+", "/usr+", "/usr/localised+", "/nas+"}},
        {"/us+", {}},
        // A drive that is not the pair's own holds the path.
        {"/usr/x+", {"/usr+"}},
    };
    for (const auto& [path, excluded] : cases)
        EXPECT_EQ(exclusions(drives, pairOf(path, "/")), excluded) << path;
    const PathDrive root = pairOf("/+", "/"), usr = pairOf("/usr+", "/");
    // The last drive whose path the text starts with wins, so "/us" hides "/".
    EXPECT_THAT(exclusions(drivesOf("a / ext4\nb /us xfs\n"), usr), ElementsAre("/us+"));
    // No drive encloses the root: the first drive is used, whatever its type.
    EXPECT_THAT(exclusions(drivesOf("p /x proc\na / ext4\n"), root), ElementsAre("/x+", "/x+"));
    // A directory that ends in ":" is excluded without it.
    EXPECT_THAT(exclusions(drivesOf("a / ext4\nb /x: xfs\n"), root), ElementsAre("/x+"));
    std::vector<DriveInfo> concerned;
    PathHelper::reduceDriveList(drives, concerned, usr);
    EXPECT_THAT(show(concerned), ElementsAre("2 /: ext4", "2 /usr: vfat", "2 /usr/local: ext4",
                                             "2 /usr/localised: xfs"));
}

TEST(AccumulatedPairs, ReachEveryPlaceOnce) {
    const std::vector<DriveInfo> drives =
        normalisedDrivesOf("a / ext4\nb /m xfs\nc /m/n ext4\nd /p ext4\nh:/ /r ext4\n");
    const PathDrive root = pairOf("/+", "/");
    const struct {
        std::vector<PathDrive> parent, resolved;
        std::vector<std::string> expected;
    } cases[] = {
        // Enclosing paths come first. Other paths keep their order.
        {{pairOf("/m/n+", "/m/n"), pairOf("/r+", "/r", DRIVE_REMOTE),
          pairOf("/m+", "/m", DRIVE_LOCAL, L"xfs")},
         {root},
         {"/+ on /", "/r+ on /r", "/m+ on /m", "/m/n+ on /m/n"}},
        // Only a recursive path covers what lies below, by components.
        {{}, {pairOf("/", "/"), pairOf("/p", "/p")}, {"/ on /", "/p on /p"}},
        {{}, {pairOf("/p+", "/p"), pairOf("/pp+", "/")}, {"/p+ on /p", "/pp+ on /"}},
        // One pair from both lists; it is recursive if either is.
        {{pairOf("/p", "/p")}, {pairOf("/p+", "/p")}, {"/p+ on /p"}},
    };
    for (const auto& [parent, resolved, expected] : cases) {
        std::vector<PathDrive> pairs = {root, root};
        PathHelper::accumulatePairs(drives, parent, resolved, pairs);
        EXPECT_EQ(show(pairs), expected);
    }
}

/// Whether a scan of the pair reaches `path`.
bool reaches(const std::vector<DriveInfo>& drives, const PathDrive& pair,
             const std::wstring& path) {
    std::vector<PathInfo> excluded;
    PathHelper::buildExcludeList(drives, pair, excluded);
    return checkPathList(path.c_str(), {pair.path}, true, false) &&
           !checkPathList(path.c_str(), excluded, true, true);
}

TEST(AccumulatedPairs, CoverTheSearchedTreeExactlyOnceOverAnyMounts) {
    // Every directory of a small tree may be a mount of one of two file systems.
    const std::vector<std::string> places = {"/a", "/a/b", "/a/b/c", "/a/bb", "/d", "/d/e"};
    for (unsigned combination = 0; combination < 729; ++combination) {
        std::string table = "x / ext4\n";
        unsigned rest = combination;
        for (const std::string& place : places) {
            if (rest % 3 > 0) table += "x " + place + (rest % 3 == 1 ? " ext4\n" : " xfs\n");
            rest /= 3;
        }
        const std::vector<DriveInfo> drives = normalisedDrivesOf(table);
        for (const wchar_t* excluded : {L"none", L"xfs", L"ext4"}) {
            const std::vector<PathDrive> pairs =
                ResolvedSearch(drives, {"/+"}, {}, {excluded}).pairs;
            for (const std::string& place : places) {
                const int at = PathHelper::pathLocation(toWide(place), drives);
                const bool searched =
                    std::wcscmp(drives[static_cast<unsigned>(at)].getFileSystem(), excluded) != 0;
                const auto count = std::count_if(
                    pairs.begin(), pairs.end(),
                    [&](const PathDrive& pair) { return reaches(drives, pair, toWide(place)); });
                ASSERT_EQ(count, searched ? 1 : 0)
                    << place << " without " << toMultibyte(excluded) << " over\n"
                    << table;
            }
        }
    }
}

TEST(PathLists, MergeDifferAndExtract) {
    const std::vector<PathInfo> source = pathsOf({"/a+", "/c", "/c"});
    const auto merged = [&](auto merge, bool flag) {
        std::vector<PathInfo> list = pathsOf({"/a", "/b"});
        merge(list, source, flag);
        return show(list);
    };
    EXPECT_THAT(merged(PathHelper::appendPathList, false),
                ElementsAre("/a", "/b", "/a+", "/c", "/c"));
    EXPECT_THAT(merged(PathHelper::appendPathList, true), ElementsAre("/a", "/b", "/a+", "/c"));
    EXPECT_THAT(merged(PathHelper::pathAccumulator, false), ElementsAre("/a", "/b", "/c"));
    EXPECT_THAT(merged(PathHelper::pathAccumulator, true), ElementsAre("/a+", "/b", "/c"));
    std::vector<PathInfo> list = pathsOf({"/a+", "/b", "/a+", "/a", "/A"});
    list.emplace_back(nullptr, false);
    EXPECT_TRUE(PathHelper::removePathListDuplicate(list));
    EXPECT_EQ(list.size(), 5U);
    EXPECT_EQ(show(list[1]), "/a+") << "the later of equal entries stays";
    EXPECT_FALSE(PathHelper::removePathListDuplicate(list));

    list.clear();
    PathHelper::differencePathList(pathsOf({"/b+", "/a+", "/c", "/b+"}), pathsOf({"/a", "/A"}),
                                   list);
    EXPECT_THAT(show(list), ElementsAre("/b+", "/c", "/b+"));
    EXPECT_TRUE(PathHelper::checkforPathInfo(list, PathInfo(L"/c", true)));
    EXPECT_TRUE(PathHelper::checkforPathDriveList({pairOf("/a", "/")}, pairOf("/a", "/x")));
    EXPECT_FALSE(PathHelper::checkforPathInfo(list, PathInfo(L"/C", false)));
    const std::vector<PathDrive> pairs = {pairOf("/l+", "/l"), pairOf("/r", "/r", DRIVE_REMOTE),
                                          pairOf("/u", "/u", DRIVE_UNKNOWN)};
    const auto extracted = [&](unsigned mask) {
        std::vector<PathInfo> paths;
        PathHelper::extractPathList(pairs, mask, paths);
        return show(paths);
    };
    EXPECT_THAT(extracted(mdLocalDriveGroup), ElementsAre("/l+"));
    EXPECT_THAT(extracted(mdRemoteDriveGroup), ElementsAre("/r"));
    EXPECT_THAT(extracted(mdOtherDriveGroup), IsEmpty());
}

}  // namespace
}  // namespace fscanner
