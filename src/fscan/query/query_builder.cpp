#include "fscan/query/query_builder.h"

#include <algorithm>
#include <set>

#include "fscan/options/options.h"
#include "fscan/query/excludes.h"
#include "fscan/query/search_roots.h"
#include "fscan/text/text.h"

namespace fscan {

namespace {

/// File systems without files of users: views of the kernel, and of other file systems.
constexpr const wchar_t* pseudoFileSystems[] = {
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
    for (const wchar_t* type : pseudoFileSystems)
        if (!wanted.contains(type)) query.addExcludeFileSystem(type);
}

}  // namespace

void fillQuery(const QueryParts& parts, fscanner::FsQuery& query) {
    for (const std::wstring& pattern : parts.excludes.patterns())
        query.addExcludePath((L"$all::*:" + pattern).c_str(), true);
    setFileSystems(parts, query);
    query.setCaseSensitive(parts.options.ignoreCase ? 1 : 2);
    query.setQuery(parts.criteria.c_str());
}

void setSearchedPath(const Options& options, const SearchRoot& root, fscanner::FsQuery& query) {
    query.clearIncludePaths();
    query.addIncludePath((groupWord(root.drives) + L"::*:" + root.real).c_str(), options.recurse);
}

}  // namespace fscan
