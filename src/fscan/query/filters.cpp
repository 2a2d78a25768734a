#include "fscan/query/filters.h"

#include <fmt/format.h>
#include <fmt/xchar.h>

#include <algorithm>
#include <cwctype>
#include <filesystem>

#include "fscan/match/match.h"
#include "fscan/options/options.h"
#include "fscan/output/output.h"
#include "fscan/query/query_builder.h"
#include "fscan/query/search_roots.h"
#include "fscan/text/text.h"
#include "fscanner/fs/fs_fileinfo.h"
#include "fscanner/fs/fs_inspect.h"
#include "fscanner/fs/fs_text.h"

namespace fscan {

namespace {

bool matchesAll(const NamePattern& pattern) {
    const auto isStar = [](const std::wstring& glob) {
        return !glob.empty() && glob.find_first_not_of(L'*') == glob.npos;
    };
    return pattern.isExact() && std::any_of(pattern.globs().begin(), pattern.globs().end(), isStar);
}

/// The glob as a text of criteria, where no text can hold a quote. Where case counts there, and not
/// in the glob, a letter is any character.
std::wstring criteriaText(std::wstring glob, bool anyLetter) {
    for (wchar_t& c : glob)
        if (c == L'"' || (anyLetter && (c >= 0x80 || std::iswalpha(static_cast<wint_t>(c)) != 0)))
            c = L'?';
    return glob;
}

/// A loop: `wcspbrk` calls a function for each character.
bool couldBePattern(const wchar_t* name) {
    while (*name != 0 && *name != L'*' && *name != L'?') ++name;
    return *name != 0;
}

}  // namespace

NameFilter::NameFilter(const Options& options) : criteriaCaseSensitive_(!options.ignoreCase) {
    std::string error;  // the options were tried when they were read
    for (const std::string& name : options.names)
        add(NamePattern::glob(name, options.caseOfNames(), error));
    for (const std::string& text : options.regexes)
        add(NamePattern::regex(text, options.caseOf(text, true), error));
    if (options.pattern)
        add(NamePattern::pattern(*options.pattern, options.caseOf(*options.pattern), error));
    if (std::any_of(patterns_.begin(), patterns_.end(), matchesAll)) patterns_.clear();
    // The user's criteria have the case mode of -i.
    const auto isInsensitive = [](const NamePattern& pattern) {
        return pattern.mode() == CaseMode::insensitive;
    };
    if (options.criteria.empty() && !patterns_.empty())
        criteriaCaseSensitive_ = !std::all_of(patterns_.begin(), patterns_.end(), isInsensitive);
    const auto isExact = [&](const NamePattern& pattern) {
        const auto& globs = pattern.globs();
        return pattern.isExact() && criteriaCaseSensitive_ != isInsensitive(pattern) &&
               std::none_of(globs.begin(), globs.end(),
                            [](const std::wstring& glob) { return glob.find(L'"') != glob.npos; });
    };
    exact_ = std::all_of(patterns_.begin(), patterns_.end(), isExact);
}

void NameFilter::add(std::optional<NamePattern> pattern) {
    if (pattern) patterns_.push_back(std::move(*pattern));
}

std::wstring NameFilter::criteria() const {
    std::wstring text;
    for (const NamePattern& pattern : patterns_) {
        if (pattern.globs().empty()) return {};
        const bool anyLetter = criteriaCaseSensitive_ && pattern.mode() == CaseMode::insensitive;
        for (const std::wstring& glob : pattern.globs())
            text += (text.empty() ? L"[FILENAME]==\"" : L" || [FILENAME]==\"") +
                    criteriaText(glob, anyLetter) + L'"';
    }
    return text.empty() ? text : L'(' + text + L')';
}

bool NameFilter::confirms(const wchar_t* name) const {
    return patterns_.empty() || (exact_ && !couldBePattern(name)) || accepts(name);
}

bool NameFilter::accepts(const wchar_t* name) const {
    return patterns_.empty() ||
           std::any_of(patterns_.begin(), patterns_.end(),
                       [name](const NamePattern& pattern) { return pattern.matches(name); });
}

namespace {

// A literal has at most 31 bits, but arithmetic has 63.
std::wstring number(unsigned long long value) {
    constexpr unsigned long long part = 1ULL << 30;
    if (value < part) return std::to_wstring(value);
    return fmt::format(L"({} * {} + {})", number(value / part), part, value % part);
}

std::wstring typeCriteria(const std::vector<std::string>& words) {
    std::wstring any;
    for (const std::string& word : words)
        any += fmt::format(L"{}type(path([PATHID], [FILENAME]), \"{}\") != 0",
                           any.empty() ? L"" : L" || ", toWide(word));
    return L"(" + any + L")";
}

std::wstring criteriaOf(const Options& options, bool mayBeOld) {
    std::wstring all;
    if (options.larger) andAlso(all, L"[SIZE] > " + number(*options.larger));
    if (options.smaller) andAlso(all, L"[SIZE] < " + number(*options.smaller));
    for (const PermissionTest& test : options.permissions)
        if (!mayBeOld) andAlso(all, test.criteria());
    if (options.links)
        andAlso(all, PermissionTest{fscanner::FS_ATTR_SYMBOLIC_LINK, false}.criteria());
    // Last: it reads the files.
    if (!options.types.empty()) andAlso(all, typeCriteria(options.types));
    return all;
}

}  // namespace

FileFilters::FileFilters(const Options& options, bool mayBeOld)
    : options_(options), mayBeOld_(mayBeOld), criteria_(criteriaOf(options, mayBeOld)) {
    for (const std::string& glob : options.pathGlobs) {
        const std::string whole = wholePathGlob(glob).value_or(glob);
        const bool anywhere = matchesAnywhere(glob);
        paths_.push_back(
            toWide(anywhere ? whole : std::filesystem::path(whole).lexically_normal().native()));
    }
    std::string error;  // the options were tried when they were read
    for (const std::string& text : options.pathRegexes)
        pathRegexes_.push_back(
            ByteRegex::create(text, text, options.caseOf(text, true), false, error));
}

bool FileFilters::pathFits(const std::wstring& directory, const wchar_t* name) const {
    if (paths_.empty() && pathRegexes_.empty()) return true;
    const std::wstring path = joinedPath(directory, name);
    if (!pathRegexes_.empty()) {
        const std::string bytes = toBytes(path);
        const auto matches = [&bytes](const auto& regex) { return regex->matches(bytes); };
        if (std::any_of(pathRegexes_.begin(), pathRegexes_.end(), matches)) return true;
    }
    return std::any_of(paths_.begin(), paths_.end(), [&](const std::wstring& glob) {
        return fscanner::fsNameMatches(glob.c_str(), path.c_str(), !options_.ignoreCase);
    });
}

bool FileFilters::needDetails() const {
    const bool permissions = mayBeOld_ && !options_.permissions.empty();
    return options_.newer || options_.older || options_.owner || permissions;
}

bool FileFilters::accept(const FileDetails& file) const {
    const bool permitted =
        std::all_of(options_.permissions.begin(), options_.permissions.end(),
                    [&file](PermissionTest test) { return test.holds(file.attributes); });
    return permitted && (!options_.newer || file.modified > *options_.newer) &&
           (!options_.older || file.modified < *options_.older) &&
           (!options_.owner || file.user == *options_.owner) &&
           (!options_.larger || file.size > *options_.larger) &&
           (!options_.smaller || file.size < *options_.smaller) &&
           (!options_.links || (file.attributes & fscanner::FS_ATTR_SYMBOLIC_LINK) != 0);
}

// ---- Exclusions -------------------------------------------------------------

namespace {

namespace fs = std::filesystem;

bool hasWildcard(const fs::path& path) {
    return path.native().find_first_of("*?") != std::string::npos;
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
std::string withoutFinalSlashes(std::string text) {
    while (text.size() > 1 && text.ends_with('/')) text.pop_back();
    return text;
}

}  // namespace

/// Resolves the links of paths without touching mounts that may be dead.
class LinkReader {
public:
    LinkReader(const DriveList& drives, const SearchRoots& roots)
        : drives_(drives), roots_(roots) {}

    /// The absolute path with its links resolved, as far as it exists. Where that fails, the
    /// path is only normalized.
    fs::path resolved(const fs::path& path) const {
        const auto touch = [this](const wchar_t* prefix) { return mayTouch(prefix); };
        const std::wstring real = fscanner::fsResolvePath(toWide(path.native()).c_str(), touch);
        return real.empty() ? path.lexically_normal() : fs::path(toBytes(real));
    }

private:
    bool mayTouch(std::wstring_view path) const {
        const fscanner::DriveInfo* const drive = drives_.of(path);
        if (drive == nullptr) return true;
        if (mountDirectory(*drive) == path) return false;  // a mount point is no link
        if (!fscanner::fsIsServed(*drive)) return true;
        return std::any_of(roots_.roots.begin(), roots_.roots.end(),
                           [&](const SearchRoot& root) { return drives_.of(root.real) == drive; });
    }

    const DriveList& drives_;
    const SearchRoots& roots_;
};

std::optional<Excludes> Excludes::read(const Options& options, const DriveList& drives,
                                       const SearchRoots& roots) {
    const LinkReader links(drives, roots);
    Excludes excludes;
    excludes.caseSensitive_ = !options.ignoreCase;
    for (const std::string& text : options.excludes)
        if (!excludes.add(text, links)) return std::nullopt;
    excludes.addWholeMounts(drives);
    return excludes;
}

/// A pattern "MOUNT/*" leaves out all of a mounted file system. Adds the mount point itself, so
/// that the walk does not open it.
void Excludes::addWholeMounts(const DriveList& drives) {
    const std::size_t count = patterns_.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (!patterns_[i].ends_with(L"/*")) continue;
        const std::wstring above = patterns_[i].substr(0, patterns_[i].size() - 2);
        for (const fscanner::DriveInfo& drive : drives.all()) {
            const std::wstring directory(mountDirectory(drive));
            if (!fscanner::fsPathMatches(above.c_str(), directory.c_str(), false, caseSensitive_))
                continue;
            patterns_.push_back(directory);
            owners_.push_back(owners_[i]);
        }
    }
}

bool Excludes::add(const std::string& text, const LinkReader& links) {
    const std::optional<std::string> glob = wholePathGlob(text);
    if (text.empty() || !glob) {
        complain(text.empty() ? "--exclude: it is empty"
                              : fmt::format("--exclude {}: the current directory is gone", text));
        return false;
    }
    given_.push_back({text});
    if (matchesAnywhere(text))
        addAnywhere(withoutFinalSlashes(text), links);
    else
        addResolved(withoutFinalSlashes(*glob), links);
    return true;
}

/// The library takes only absolute patterns: "*x" becomes "/*x", and "*/x" also "/x".
void Excludes::addAnywhere(const std::string& text, const LinkReader& links) {
    const std::wstring glob = toWide(*wholePathGlob(text));
    const std::wstring end = glob.substr(std::min(glob.find_first_not_of(L'*'), glob.size()));
    addPattern(L"/*" + end);
    if (end.starts_with(L'/')) addPattern(end);
    // Below the current directory, the text may lead through links: then its target too.
    const std::optional<std::string> here = wholePathGlob("./" + text);
    if (!here || text.starts_with('*')) return;
    const Split split(fs::path(*here).lexically_normal());
    if (links.resolved(split.plain) != split.plain) addResolved(*here, links);
}

void Excludes::addResolved(const std::string& path, const LinkReader& links) {
    const Split split(path);
    addPattern(toWide((links.resolved(split.plain) / split.rest).lexically_normal().native()));
    // The path may be a link: the link itself is left out, too.
    if (split.rest.empty() && split.plain.has_filename())
        addPattern(
            toWide((links.resolved(split.plain.parent_path()) / split.plain.filename()).native()));
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
