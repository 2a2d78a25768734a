#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "fscanner/fs/fs_resource_manager.h"

using namespace fscanner;

namespace {

std::string calls;

void record(int code, void* context) {
    calls += static_cast<const char*>(context) + std::to_string(code);
}

void removeItself(int, void* context) {
    calls += "self";
    FsResourceManager::getInstance()->removeCleanupHandler(removeItself, context);
}

void shout(int, void*) {
    std::fputs("called", stderr);
}

char a[] = "a";
char b[] = "b";
char c[] = "c";

// Destroyed after the registry has forgotten its registrations, as a host's static
// reader may be.
struct LateRemover {
    ~LateRemover() {
        FsResourceManager::getInstance()->removeCleanupHandler(shout, nullptr);
        FsResourceManager::getInstance()->invokeCleanupHandlers(1);
    }
} lateRemover;

class CleanupHandlers : public testing::Test {
protected:
    void SetUp() override {
        calls.clear();
        for (char* context : {a, b, c}) manager_.addCleanupHandler(record, context);
    }
    void TearDown() override {
        for (char* context : {a, b, c, a}) manager_.removeCleanupHandler(record, context);
    }
    std::string invoked(int code) {
        calls.clear();
        manager_.invokeCleanupHandlers(code);
        return calls;
    }

    FsResourceManager& manager_ = *FsResourceManager::getInstance();
};

TEST_F(CleanupHandlers, AreRemovedByPair) {
    manager_.removeCleanupHandler(shout, a);  // unknown pairs, and null
    manager_.addCleanupHandler(nullptr, a);
    manager_.addCleanupHandler(record, a);
    manager_.removeCleanupHandler(record, a);  // the latest of the two
    manager_.addCleanupHandler(removeItself, nullptr);
    EXPECT_EQ(invoked(7), "selfc7b7a7");
    EXPECT_EQ(invoked(0), "c0b0a0");
    for (char* context : {b, a, c, c}) manager_.removeCleanupHandler(record, context);
    EXPECT_EQ(invoked(1), "");
}

TEST_F(CleanupHandlers, AreForgottenAtExit) {
    EXPECT_EXIT(
        {
            manager_.addCleanupHandler(shout, nullptr);
            std::exit(0);
        },
        testing::ExitedWithCode(0), testing::Not(testing::HasSubstr("called")));
}

}  // namespace
