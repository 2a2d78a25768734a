#include "excludes.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>

#include "drives.h"
#include "fscanner/fs/fs_text.h"
#include "messages.h"
#include "options.h"
#include "path_glob.h"
#include "text.h"

namespace fscan {

namespace {

namespace fs = std::filesystem;

bool hasWildcard(const fs::path& path) {
    return path.native().find_first_of("*?") != std::string::npos;
}

fs::path withoutLinks(const fs::path& path) {
    std::error_code error;
    fs::path real = fs::weakly_canonical(path, error);
    return error ? path.lexically_normal() : real;
}

/// The path with its links resolved as far as it exists; as it is where that fails. A
/// mount point is no link, and is not touched.
fs::path resolved(const fs::path& path, const DriveList& drives) {
    const fs::path whole = (withoutLinks(path.parent_path()) / path.filename()).lexically_normal();
    return drives.isMountPoint(toWide(whole.native())) ? whole : withoutLinks(whole);
}

/// Splits an absolute path before its first component with a wildcard.
struct Split {
    fs::path plain;
    fs::path rest;

    explicit Split(const fs::path& path) {
        for (const fs::path& component : path)
            (rest.empty() && !hasWildcard(component) ? plain : rest) /= component;
    }
};

/// Without "/" at its end, unless it is the root.
std::string trimmed(std::string text) {
    while (text.size() > 1 && text.ends_with('/')) text.pop_back();
    return text;
}

}  // namespace

std::optional<Excludes> Excludes::read(const Options& options, const DriveList& drives) {
    Excludes excludes;
    excludes.caseSensitive_ = !options.ignoreCase;
    for (const std::string& text : options.excludes)
        if (!excludes.add(text, drives)) return std::nullopt;
    return excludes;
}

bool Excludes::add(const std::string& text, const DriveList& drives) {
    const std::optional<std::string> glob = wholePathGlob(text);
    if (text.empty() || !glob) {
        complain(text.empty() ? "--exclude: it is empty"
                              : fmt::format("--exclude {}: the current directory is gone", text));
        return false;
    }
    given_.push_back({text});
    if (matchesAnywhere(text))
        addAnywhere(trimmed(text), drives);
    else
        addResolved(trimmed(*glob), drives);
    return true;
}

/// The library takes absolute patterns alone: "*x" is "/*x", and "*/x" may be "/x" as well.
void Excludes::addAnywhere(const std::string& text, const DriveList& drives) {
    const std::wstring glob = toWide(*wholePathGlob(text));
    const std::wstring end = glob.substr(std::min(glob.find_first_not_of(L'*'), glob.size()));
    addPattern(L"/*" + end);
    if (end.starts_with(L'/')) addPattern(end);
    // What it leads to from the current directory, through links.
    const std::optional<std::string> here = wholePathGlob("./" + text);
    if (!here || text.starts_with('*')) return;
    const Split split(fs::path(*here).lexically_normal());
    if (resolved(split.plain, drives) != split.plain) addResolved(*here, drives);
}

void Excludes::addResolved(const std::string& path, const DriveList& drives) {
    const Split split(path);
    addPattern(toWide((resolved(split.plain, drives) / split.rest).lexically_normal().native()));
    // A link is left out as the file that it is, too.
    if (split.rest.empty() && split.plain.has_filename())
        addPattern(
            toWide((withoutLinks(split.plain.parent_path()) / split.plain.filename()).native()));
}

void Excludes::addPattern(std::wstring pattern) {
    pattern = withoutFinalSlash(pattern);
    const std::size_t owner = given_.size() - 1;
    if (!owners_.empty() && owners_.back() == owner && patterns_.back() == pattern) return;
    patterns_.push_back(std::move(pattern));
    owners_.push_back(owner);
}

bool Excludes::cover(std::wstring_view directory, const wchar_t* name) const {
    return !patterns_.empty() && cover(joinedPath(directory, name));
}

bool Excludes::cover(const std::wstring& path) const {
    bool covered = false;
    for (std::size_t i = 0; i < patterns_.size(); ++i) {
        Given& given = given_[owners_[i]];
        if (covered && given.met) continue;
        if (!fscanner::fsPathMatches(patterns_[i].c_str(), path.c_str(), true, caseSensitive_))
            continue;
        covered = given.met = true;
    }
    return covered;
}

std::vector<std::string> Excludes::unmet() const {
    std::vector<std::string> texts;
    for (const Given& given : given_)
        if (!given.met) texts.push_back(given.text);
    return texts;
}

}  // namespace fscan
