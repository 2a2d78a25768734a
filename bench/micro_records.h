#pragma once

#include <benchmark/benchmark.h>

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

/// The data that the micro-benchmarks and their bare loops share.
namespace bench {

struct Record {
    std::wstring name;
    std::uint64_t size = 0;
};

/// 100,000 records, always the same. The names are like those of a source tree; one in seven ends
/// in
/// ".h". About half of the sizes exceed 1000.
inline const std::vector<Record>& records() {
    static const std::vector<Record> all = [] {
        constexpr std::array stems{L"main", L"fs_query", L"Makefile", L"libstdc++", L"config_old"};
        constexpr std::array ends{L".h", L".c", L".cpp", L".so.6", L".conf", L".html", L""};
        std::mt19937 random(1);
        std::vector<Record> made(100'000);
        for (Record& record : made) {
            record.name = stems[random() % stems.size()];
            record.name += L'_' + std::to_wstring(random() % 1'000'000);
            record.name += ends[random() % ends.size()];
            record.size = random() % 2 == 0 ? random() % 1000 : random() % 1'000'000;
        }
        return made;
    }();
    return all;
}

/// Calls `matches` for all records in each iteration. The result to compare is "time/item".
template <typename Matches>
void overRecords(benchmark::State& state, Matches matches) {
    const auto& all = records();
    std::size_t found = 0;
    for (auto _ : state) {
        found = 0;
        for (const Record& record : all) found += matches(record) ? 1 : 0;
        benchmark::DoNotOptimize(found);
    }
    state.counters["found"] = static_cast<double>(found);
    state.counters["time/item"] = benchmark::Counter(
        static_cast<double>(all.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace bench
