#pragma once

#include "fscanner/common/debug.h"
#include "support/temporary_directory.h"

namespace fscanner {

/// Collects the debug log of a scope.
class LogCapture {
public:
    LogCapture() { startDebug((directory_ / "log").c_str()); }
    LogCapture(LogCapture&&) = delete;
    ~LogCapture() { stopDebug(); }
    std::string text() const { return readWholeFile(directory_ / "log"); }

private:
    TemporaryDirectory directory_;
};

}  // namespace fscanner
