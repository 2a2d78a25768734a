// A mounted file system whose server never answers.

#include <fcntl.h>
#include <linux/fuse.h>

#include <array>

#include "program_run.h"
#include "support/private_mounts.h"

namespace fscan::test {
namespace {

/// Mounts a file system that begins as all do, and answers nothing from then on. It comes to
/// life, with errors, when the descriptor is closed. -1 where that cannot be.
int mountDead(const std::string& directory) {
    const int server = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options =
        "fd=" + std::to_string(server) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
    if (server < 0 || ::mount("dead", directory.c_str(), "fuse.dead", 0, options.c_str()) != 0)
        return -1;
    alignas(fuse_in_header) std::array<char, 1 << 18> request{};
    if (::read(server, request.data(), request.size()) < 0) return -1;
    struct {
        fuse_out_header header{};
        fuse_init_out init{};
    } answer;
    answer.header.len = sizeof answer;
    answer.header.unique = reinterpret_cast<const fuse_in_header*>(request.data())->unique;
    answer.init.major = FUSE_KERNEL_VERSION;
    answer.init.minor = FUSE_KERNEL_MINOR_VERSION;
    answer.init.max_write = 4096;
    return ::write(server, &answer, sizeof answer) == sizeof answer ? server : -1;
}

class DeadMount : public FscanTest {
protected:
    DeadMount() {
        add("live/file");
        std::filesystem::create_directories(tree_ / "dead");
        std::filesystem::create_symlink("dead", tree_ / "link");
    }
    /// Runs `body` where "dead" is one. The alarm ends what hangs, and with it the server.
    template <typename Body>
    void beside(Body body) const {
        fscanner::withPrivateMounts([&] {
            ::alarm(60);
            if (mountDead(tree_ / "dead") < 0) return fscanner::notAllowed;
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
        for (const char* excluded : {"dead", "./dead", "./dead/", "*/dead"})
            expectFile(excluded, ".");
        for (const char* excluded : {"link", "./link"}) expectFile(excluded, "live");
        // Below it, and all that is in it, by itself or through a link.
        const std::string dead = tree_ / "dead";
        for (const std::string& excluded : {dead + "/*", dead + "/sub", std::string("./link/sub")})
            expectFile(excluded.c_str(), "live");
        for (const std::string& excluded :
             {dead + "/*", std::string("./dead/*"), std::string("dead/*"), std::string("./link/*")})
            expectFile(excluded.c_str(), ".");
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

// The first one is noted as it is anywhere, the second ends the process.
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
