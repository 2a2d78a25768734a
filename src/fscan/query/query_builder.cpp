#include "fscan/query/query_builder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cwctype>
#include <set>

#include "fscan/options/options.h"
#include "fscan/options/words.h"
#include "fscan/output/output.h"
#include "fscan/process/exit_status.h"
#include "fscan/query/filters.h"
#include "fscan/query/search_roots.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"

namespace fscan {

namespace {

/// File systems without files of users: views of the kernel, and of other file systems.
constexpr const wchar_t* kPseudoFileSystems[] = {
    L"proc",    L"sysfs",       L"cgroup", L"cgroup2",    L"devtmpfs", L"devpts",    L"debugfs",
    L"tracefs", L"securityfs",  L"pstore", L"bpf",        L"mqueue",   L"hugetlbfs", L"configfs",
    L"fusectl", L"binfmt_misc", L"autofs", L"rpc_pipefs", L"nsfs",     L"efivarfs",
};

std::wstring groupWord(unsigned drives) {
    static constexpr const wchar_t* words[] = {L"$other", L"$local", L"$remote", L"$all"};
    return words[drives & allDrives];
}

/// The types of the file systems that the searched directories themselves lie on.
std::set<std::wstring> typesOfRoots(const QueryParts& parts) {
    std::set<std::wstring> types;
    for (const SearchRoot& root : parts.roots.roots)
        if (const fscanner::DriveInfo* drive = parts.drives.of(root.real))
            types.insert(drive->getFileSystem());
    return types;
}

void setFileSystems(const QueryParts& parts, fscanner::FsQuery& query) {
    const Options& options = parts.options;
    for (const std::string& type : options.fileSystems)
        query.addIncludeFileSystem(toWide(type).c_str());
    for (const std::string& type : options.notFileSystems)
        query.addExcludeFileSystem(toWide(type).c_str());
    if (!options.fileSystems.empty() || options.allFileSystems) return;
    const std::set<std::wstring> wanted = typesOfRoots(parts);
    for (const wchar_t* type : kPseudoFileSystems)
        if (!wanted.contains(type)) query.addExcludeFileSystem(type);
}

}  // namespace

void fillQuery(const QueryParts& parts, fscanner::FsQuery& query) {
    for (const std::wstring& pattern : parts.excludes.patterns())
        query.addExcludePath((L"$all::*:" + pattern).c_str(), true);
    setFileSystems(parts, query);
    query.setCaseSensitive(parts.options.ignoreCase ? 1 : 2);
    query.setCriteriaCaseSensitive(!parts.criteriaIgnoresCase);
    query.setQuery(parts.criteria.c_str());
    query.setKinds(parts.options.kinds);
    query.setDepth(parts.options.depth);
    if (parts.options.followLinks) query.setLinks(fscanner::FsLinks::follow);
    query.setOneFileSystem(parts.options.oneFileSystem);
}

void setSearchedPath(const Options& options, const SearchRoot& root, fscanner::FsQuery& query) {
    query.clearIncludePaths();
    addSearchedPath(options, root, query);
}

void addSearchedPath(const Options& options, const SearchRoot& root, fscanner::FsQuery& query) {
    query.addIncludePath((groupWord(root.drives) + L"::*:" + root.real).c_str(), options.recurse);
}

// ---- The criteria -----------------------------------------------------------

namespace {

using fscanner::FsCriteriaReport;

/// Compiles a criteria that is to be one condition among others. A criteria whose value is a
/// text compiles alone, but is no condition.
FsCriteriaReport compileCondition(const std::wstring& text, bool caseSensitive = true) {
    FsCriteriaReport report = fscanner::fsCheckCriteria(text.c_str(), caseSensitive);
    if (report.compiles && !fscanner::fsCheckCriteria((L"(" + text + L") && 1").c_str()).compiles) {
        report.compiles = false;
        report.error = "its value is a text, not a condition";
        report.position = 0;
    }
    return report;
}

/// "; did you mean ...?" for the name at a place of the text, or nothing.
std::string meant(std::wstring_view text, std::size_t position) {
    const std::wstring_view rest = text.substr(std::min(position, text.size()));
    if (rest.starts_with(L'[')) {
        const std::string name = toBytes(rest.substr(1, rest.find(L']') - 1));
        return suggestionText(name, wordsOfFields());
    }
    const std::size_t end = rest.find_first_of(L"( =<>!&|+-*/)");
    if (end == rest.npos || rest[end] != L'(') return "";
    return suggestionText(toBytes(rest.substr(0, end + 1)), wordsOfCommands());
}

/// Whether a tree, written in one line, calls a command, as in "(path ...": behind "(" stands a
/// letter. Operators have none. A text between quotes holds no quote.
bool callsCommand(const std::wstring& tree) {
    bool inText = false;
    wchar_t last = 0;
    for (const wchar_t c : tree) {
        if (c == L'"') inText = !inText;
        if (!inText && last == L'(' && std::iswalpha(static_cast<wint_t>(c)) != 0) return true;
        last = inText ? L'"' : c;
    }
    return false;
}

/// Tells the user of criteria that read no field: whether they hold for all files or for none.
void noteConstant(const std::wstring& text, const FsCriteriaReport& report) {
    if (!report.fields.empty() || callsCommand(report.tree)) return;
    const auto filter = fscanner::FsRecordFilter::create(text.c_str(), true);
    const bool always = filter && filter->matches(fscanner::FsFileInfo());
    complain(fmt::format("note: the criteria {} reads no field: it holds for {} file",
                         toBytes(text), always ? "every" : "no"));
}

void complainOf(const std::wstring& text, const FsCriteriaReport& report) {
    const std::string error = report.error + meant(text, report.position);
    complain(fmt::format("criteria: {}", text.empty() ? "it is empty" : error),
             text.empty() ? std::string() : pointAt(text, report.position));
}

std::string fieldNames(const FsCriteriaReport& report) {
    std::string names;
    for (const std::wstring& field : report.fields)
        names += (names.empty() ? "" : ", ") + toBytes(field);
    return names;
}

}  // namespace

std::wstring trimmed(std::wstring_view text) {
    const std::size_t first = text.find_first_not_of(L' ');
    if (first == text.npos) return {};
    return std::wstring(text.substr(first, text.find_last_not_of(L' ') - first + 1));
}

void andAlso(std::wstring& criteria, std::wstring_view condition) {
    if (!criteria.empty() && !condition.empty()) criteria += L" && ";
    criteria += condition;
}

std::optional<std::wstring> combineCriteria(const std::vector<std::string>& texts) {
    std::wstring all;
    for (const std::string& given : texts) {
        const std::wstring text = trimmed(toWide(given));
        const FsCriteriaReport report = compileCondition(text);
        if (text.empty() || !report.compiles) {
            complainOf(text, report);
            return std::nullopt;
        }
        noteConstant(text, report);
        andAlso(all, L"(" + text + L")");
    }
    return all;
}

ExitStatus checkCriteria(const std::string& given, bool caseSensitive, Output& out) {
    const std::wstring text = trimmed(toWide(given));
    const FsCriteriaReport report = compileCondition(text, caseSensitive);
    if (text.empty() || !report.compiles) {
        complainOf(text, report);
        return ExitStatus::usage;
    }
    out.writeLine("tree:   ", toBytes(report.tree));
    if (!report.fields.empty()) out.writeLine("fields: ", fieldNames(report));
    if (!report.indexField.empty())
        out.writeLine("index:  ", toBytes(report.indexField + L" = " + report.indexKey));
    return ExitStatus::found;
}

}  // namespace fscan
