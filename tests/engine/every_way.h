#pragma once

#include <gtest/gtest.h>

#include <tuple>

#include "engine/cache_user.h"
#include "fscanner/fs/fs_direct.h"
#include "support/listener.h"

namespace fscanner {

/// Asks a query directly, of a new, an old and a refreshed cache, of the one that is given, and of
/// monitored ones, each with a plan made for the call and a kept one. Calls
/// `check(status, writer, listener)` for each answer.
template <typename Check>
void askInEveryWay(const FsQuery& query, const CacheUser& shared, Check check) {
    const auto ask = [&](const std::string& way, auto run) {
        const Listener heard;
        CollectingWriter writer;
        const int status = run(writer);
        SCOPED_TRACE(way);
        check(status, writer, heard);
    };
    ask("directly", [&](auto& to) { return fsScanQuery(to, query, kMinute); });
    for (const bool kept : {false, true}) {
        const CacheUser own, monitored(false, true);
        const std::string form = kept ? ", kept plan" : "";
        for (const auto& [way, cache, age] : {std::tuple("a new cache", &own, kDay),
                                              {"an old cache", &own, kDay},
                                              {"a refreshed cache", &own, kAllOld},
                                              {"the shared cache", &shared, kDay},
                                              {"monitored, nothing there", &monitored, kDay}})
            ask(way + form, [&, from = cache, limit = age](auto& to) {
                return from->query(to, query, limit, kMinute, kept);
            });
        FS_Cache served(L"dirs", L"files", own.directory().wide().c_str(), true, false, true);
        EXPECT_EQ(served.create(0, FS_CACHE_OPEN_ALWAYS), 0);
        ask("monitored" + form, [&](auto& to) {
            return kept ? served.executeQueryEx(to, query, kMinute, kDay)
                        : served.executeQuery(to, query, kMinute, kDay);
        });
        served.close();
    }
}

}  // namespace fscanner
