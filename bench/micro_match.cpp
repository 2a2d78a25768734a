// Measures the matching of names with wildcards: by the plain function, by the compiled pattern,
// and by a bare loop written for that pattern alone.

#include <cwctype>
#include <string>
#include <string_view>

#include "fscanner/common/pattern.h"
#include "fscanner/common/wildcard.h"
#include "micro_records.h"

namespace {

using bench::overRecords;
using bench::Record;

bool endsInH(const Record& record) {
    return std::wstring_view(record.name).ends_with(L".h");
}

bool endsInHFolded(const Record& record) {
    const std::wstring_view name = record.name;
    return name.size() >= 2 && name[name.size() - 2] == L'.' &&
           std::towlower(static_cast<wint_t>(name.back())) == L'h';
}

const std::wstring& oneName() {
    static const std::wstring name = bench::records()[500].name;
    return name;
}
bool isOneName(const Record& record) {
    return record.name == oneName();
}

bool beginsWithMain(const Record& record) {
    return std::wstring_view(record.name).starts_with(L"main");
}

bool containsOld(const Record& record) {
    return record.name.find(L"_old_") != std::wstring::npos;
}

void functionOver(benchmark::State& state, const wchar_t* pattern, bool caseSensitive) {
    overRecords(state, [=](const Record& record) {
        return fscanner::wildvccmp(pattern, record.name.c_str(), caseSensitive) != 0;
    });
}

void compiledOver(benchmark::State& state, const wchar_t* pattern, bool caseSensitive) {
    const fscanner::CompiledPattern compiled(pattern, caseSensitive);
    overRecords(state, [&](const Record& record) { return compiled.matches(record.name); });
}

// The worst case: a name of 255 equal letters, and a pattern that fails at each position only after
// a long run of equal letters. One iteration is one match.
std::wstring worstPattern(wchar_t letter) {
    std::wstring pattern = L"*";
    pattern.append(63, letter).append(L"?").append(63, letter).append(L"b*");
    return pattern;
}

void worstCase(benchmark::State& state, wchar_t letter, bool caseSensitive, bool compile) {
    const std::wstring name(255, letter), pattern = worstPattern(letter);
    const fscanner::CompiledPattern compiled(pattern, caseSensitive);
    for (auto step : state) {
        const bool matches =
            compile ? compiled.matches(name)
                    : fscanner::wildvccmp(pattern.c_str(), name.c_str(), caseSensitive) != 0;
        benchmark::DoNotOptimize(matches);
    }
}

const bool kWorstRegistered = [] {
    for (const bool compile : {false, true}) {
        const std::string how = compile ? "/compiled" : "/wildvccmp";
        benchmark::RegisterBenchmark(("match/worst" + how).c_str(), worstCase, L'a', true, compile);
        benchmark::RegisterBenchmark(("match/worst_folded" + how).c_str(), worstCase, L'\x00e9',
                                     false, compile);
    }
    return true;
}();

// "bare", "wildvccmp" and "compiled" of one kind must find the same number.
const bool kRegistered = [] {
    struct Kind {
        const char* name;
        const wchar_t* pattern;
        bool caseSensitive;
        bool (*bare)(const Record&);
    };
    const Kind kinds[] = {
        {"exact", oneName().c_str(), true, isOneName},
        {"prefix", L"main*", true, beginsWithMain},
        {"suffix", L"*.h", true, endsInH},
        {"suffix_folded", L"*.H", false, endsInHFolded},
        {"contains", L"*_old_*", true, containsOld},
        {"general", L"*_??7*.*p*", true, nullptr},
    };
    for (const Kind& kind : kinds) {
        const std::string name = std::string("match/") + kind.name;
        if (kind.bare) {
            benchmark::RegisterBenchmark(
                (name + "/bare").c_str(),
                [bare = kind.bare](benchmark::State& state) { overRecords(state, bare); });
        }
        benchmark::RegisterBenchmark((name + "/wildvccmp").c_str(), functionOver, kind.pattern,
                                     kind.caseSensitive);
        benchmark::RegisterBenchmark((name + "/compiled").c_str(), compiledOver, kind.pattern,
                                     kind.caseSensitive);
    }
    return true;
}();

}  // namespace
