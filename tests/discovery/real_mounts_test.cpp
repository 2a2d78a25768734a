#include <gtest/gtest.h>

#include <sstream>

#include "fixtures.h"
#include "support/child_process.h"
#include "support/private_mounts.h"

namespace fscanner {
namespace {

namespace stdfs = std::filesystem;

/// What discovery makes of the tree at `root`, in lines.
std::string discover(const std::string& root) {
    std::ostringstream report;
    for (const char* name : {"", "/local", "/remote", "/local/in ner"}) {
        report << "type of " << name << ": "
               << DriveHelper::getDriverType(toWide(root + name).c_str()) << "\n";
    }
    std::vector<DriveInfo> drives;
    DriveHelper::buildDriveList(drives, mdAllDriveGroup);
    normaliseDriveList(drives);
    for (const PathDrive& pair : ResolvedSearch(drives, {"$all::" + root + "/link/+"}).pairs) {
        std::vector<PathInfo> exclusions;
        PathHelper::buildExcludeList(drives, pair, exclusions);
        report << "scan " << show(pair.path) << " as " << pair.drive.getType();
        for (const PathInfo& path : exclusions) report << " without " << show(path);
        report << "\n";
    }
    return report.str();
}

TEST(RealMounts, AreFoundAndKeptApart) {
    const TemporaryDirectory directory;
    const std::string root = stdfs::canonical(directory.path()).string();
    const std::string tree = root + "/tree";
    const std::string reportPath = root + "/report";
    stdfs::create_directory(tree);
    const int status = inChild([&] {
        if (!enterPrivateMounts() || !mountMemory("tmpfs", tree)) return notAllowed;
        stdfs::create_symlink(".", tree + "/link");
        if (!mountMemory("none", tree + "/local") || !mountMemory("none", tree + "/local/in ner") ||
            !mountMemory("server:/export", tree + "/remote") ||
            !mountMemory("none", tree + "/remote/back")) {
            return 1;
        }
        setMountTablePath("/proc/self/mounts");
        std::string report = discover(tree);
        for (std::size_t at; (at = report.find(tree)) != std::string::npos;) {
            report.replace(at, tree.size(), "@");
        }
        writeWholeFile(reportPath, report);
        return 0;
    });
    if (status == notAllowed) GTEST_SKIP() << "no private mounts on this machine";
    ASSERT_EQ(status, 0);
    EXPECT_EQ(readWholeFile(reportPath),
              "type of : 2\n"
              "type of /local: 2\n"
              "type of /remote: 4\n"
              "type of /local/in ner: 2\n"
              // Mounts of the same kind are scanned from above, where nothing is between.
              "scan @+ as 2 without @/remote+\n"
              "scan @/remote+ as 4 without @/remote/back+\n"
              "scan @/remote/back+ as 2\n");
}

}  // namespace
}  // namespace fscanner
