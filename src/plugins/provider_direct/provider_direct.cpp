// A provider without a cache: every query scans the file systems, also local ones.

#include "fscanner/fs/fs_direct.h"
#include "fscanner/fs/fs_provider.h"

namespace fscanner {

namespace {

class DirectProvider : public FsProvider {
public:
    const char* name() const override { return "provider_direct"; }
    int lastStatus() const override { return lastStatus_; }
    bool setOption(const char*, const char*) override { return false; }

    // The age limit has no effect, as results are never old.
    int executeQuery(FsResultSetWriter& writer, const FsQuery& query, unsigned /*maximumAge*/,
                     unsigned timeout) override {
        lastStatus_ = fsScanQuery(writer, query, timeout);
        return lastStatus_;
    }

private:
    int lastStatus_ = 0;
};

}  // namespace

FsProvider* createProvider(const FsConfig*) {
    return new DirectProvider;
}

}  // namespace fscanner
