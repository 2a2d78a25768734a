#include "fscanner/fs/fs.h"

#include <string>

#include "fscanner/common/debug.h"
#include "fscanner/fs/fs_config.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_loader.h"
#include "fscanner/fs/fs_provider.h"
#include "fscanner/fs/fs_resultset_file.h"
#include "fscanner/fs/fs_resultset_vector.h"
#include "fscanner/fs/no_throw.h"

namespace fscanner {

namespace {

// Both entry points call the same operation of the provider. A provider can tell them apart
// by the class of the writer.
template <class ResultSet>
FsResultSetReader* execute(FsProvider* provider, const FsQuery& query, int minutes, int seconds) {
    if (provider == nullptr) return nullptr;
    return noThrow("::fsExecuteQuery", [&]() -> FsResultSetReader* {
        ResultSet results;
        FsResultSetWriter* writer = results.getWriter();
        if (writer == nullptr) return nullptr;
        // Unsigned, because overflow of a signed number is undefined: large limits wrap.
        const unsigned age = static_cast<unsigned>(minutes) * 60;
        const unsigned timeout = static_cast<unsigned>(seconds) * 1000;
        noThrow("::fsExecuteQuery",
                [&] { return provider->executeQuery(*writer, query, age, timeout); });
        return results.getReader();
    });
}

}  // namespace

FsProvider* fsLoadProvider(const char* name) {
    return noThrow("::fsLoadProvider", [&] {
        const FsSettings config;
        const std::string configured =
            name != nullptr ? name : config.getString("fscanner", "provider", "provider_cache");
        if (config.getInteger("fscanner", "large_files", 0) != 0)
            FsFileInfo::setLargeFileSupport(true);
        if (config.getInteger("fscanner", "long_paths", 0) != 0)
            FsFileInfo::setLongPathSupport(true);
        if (config.getError() != 0)
            debug("::fsLoadProvider - configuration: %s\n", config.getErrorText().c_str());
        return FsLoader::loadFsProvider(configured.c_str(), &config);
    });
}

FsResultSetReader* fsExecuteQuery(FsProvider* provider, const FsQuery& query, int maximumAgeMinutes,
                                  int timeoutSeconds) {
    return execute<FsResultSet_OnFile>(provider, query, maximumAgeMinutes, timeoutSeconds);
}

FsResultSetReader* fsExecuteQueryEx(FsProvider* provider, const FsQuery& query,
                                    int maximumAgeMinutes, int timeoutSeconds) {
    return execute<FsResultSet_OnVector>(provider, query, maximumAgeMinutes, timeoutSeconds);
}

}  // namespace fscanner
