// A provider that shows the calls and settings that reach it. Its configuration sets its mode.

#include <stdexcept>
#include <string>

#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_query.h"
#include "fscanner/fs/fs_resultset_vector.h"

namespace fscanner {

namespace {

class TestProvider : public FsProvider {
public:
    explicit TestProvider(bool fails) : fails_(fails) {}
    const char* name() const override { return "test_provider"; }
    int lastStatus() const override { return -40; }
    bool setOption(const char*, const char*) override { return false; }
    int executeQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned first,
                     unsigned second) override {
        const bool inMemory = dynamic_cast<FsResultSetWriter_OnVector*>(&writer) != nullptr;
        writer.addRecord(inMemory ? L"memory" : L"file", query.getQuery(), first, second);
        if (fails_) throw std::runtime_error("as told");
        return -40;
    }

private:
    bool fails_;
};

class TestMonitor : public FsMonitor {
public:
    const char* name() const override { return "test_monitor"; }
};

}  // namespace

FsProvider* createProvider(const FsConfig* config) {
    const std::string mode = config->getString("test", "mode", "");
    if (mode == "throw") throw 1;
    if (mode == "null") return nullptr;
    return new TestProvider(mode == "fail");
}

FsMonitor* createMonitor(const FsConfig*) {
    return new TestMonitor;
}

}  // namespace fscanner
