// A mounted file system whose server never answers.

#include "support/dead_mount.h"
#include "program_run.h"

namespace fscan::test {
namespace {

class DeadMount : public FscanTest {
protected:
    DeadMount() {
        add("live/file");
        std::filesystem::create_directories(tree_ / "dead");
        std::filesystem::create_symlink("dead", tree_ / "link");
    }
    /// Runs `body` where "dead" is such a mount. The alarm ends a hanging process, and the server.
    template <typename Body>
    void beside(Body body) const {
        fscanner::withPrivateMounts([&] {
            ::alarm(60);
            if (fscanner::mountDead("dead", tree_ / "dead") < 0) return fscanner::kNotAllowed;
            body();
            return HasFailure() ? 1 : 0;
        });
    }
};

TEST_F(DeadMount, IsNotTouchedWhereItIsExcluded) {
    beside([this] {
        const auto expectFile = [this](const char* excluded, const char* path) {
            const RunResult result = run({"--no-cache", "-n", "file", "-x", excluded, path});
            EXPECT_EQ(records(result.out).size(), 1U) << excluded << result.err;
        };
        // Below it, and all files in it, directly or through a link.
        const std::string all = tree_ / "dead/*", sub = tree_ / "dead/sub";
        for (const char* excluded : {"link/", "./link", "./link/sub", all.c_str(), sub.c_str()})
            expectFile(excluded, "live");
        for (const char* excluded :
             {"dead", "./dead/", "*/dead", all.c_str(), "./dead/*", "dead/*", "./link/*"})
            expectFile(excluded, ".");
        const RunResult both = run(
            {"--no-cache", "-n", "file", "-x", "dead", "-x", "dead/sub", "-x", "./link/sub", "."});
        EXPECT_EQ(records(both.out).size(), 1U) << both.err;
    });
}

TEST_F(DeadMount, EndsByTheTimeLimit) {
    beside([this] {
        for (const char* path : {"dead", "."}) {
            const RunResult result = run({"--no-cache", "--timeout", "1", path});
            EXPECT_EQ(result.status, 3);
            EXPECT_EQ(result.err, "fscan: time ran out while a file system does not answer\n");
        }
    });
}

// The first signal is noted as usual, the second ends the process.
TEST_F(DeadMount, EndsByTheSecondSignal) {
    beside([this] {
        for (const char* mode : {"--no-cache", "--no-cache --sort size --spill"}) {
            const RunResult result = shell(
                "\"$0\" " + std::string(mode) +
                " . & p=$!; sleep 1; kill -TERM $p; sleep 1; kill -TERM $p; wait $p; echo $?");
            EXPECT_THAT(result.out, testing::EndsWith("143\n")) << mode << result.err;
        }
    });
}

}  // namespace
}  // namespace fscan::test
