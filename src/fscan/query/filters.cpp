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

NameFilter::NameFilter(const Options& options, bool negated)
    : criteriaCaseSensitive_(!options.ignoreCase) {
    std::string error;  // the options were tried when they were read
    for (const std::string& name : options.names)
        add(NamePattern::glob(name, options.caseOfNames(), error));
    for (const std::string& text : options.regexes)
        add(NamePattern::regex(text, options.caseOf(text, true), error));
    if (options.pattern)
        add(NamePattern::pattern(*options.pattern, options.caseOf(*options.pattern), error));
    for (const Options& one : options.negated)
        if (NameFilter filter(one, true); !filter.isEmpty()) negated_.push_back(std::move(filter));
    if (!negated && negated_.empty() && std::any_of(patterns_.begin(), patterns_.end(), matchesAll))
        patterns_.clear();
    // The user's criteria have the case mode of -i.
    const auto isInsensitive = [](const NamePattern& pattern) {
        return pattern.mode() == CaseMode::insensitive;
    };
    const bool free = options.criteria.empty() &&
                      std::all_of(options.negated.begin(), options.negated.end(),
                                  [](const Options& one) { return one.criteria.empty(); });
    if (free && !patterns_.empty())
        criteriaCaseSensitive_ = !std::all_of(patterns_.begin(), patterns_.end(), isInsensitive);
    const auto isExact = [&](const NamePattern& pattern) {
        const auto& globs = pattern.globs();
        return pattern.isExact() && criteriaCaseSensitive_ != isInsensitive(pattern) &&
               std::none_of(globs.begin(), globs.end(),
                            [](const std::wstring& glob) { return glob.find(L'"') != glob.npos; });
    };
    exact_ = negated_.empty() && std::all_of(patterns_.begin(), patterns_.end(), isExact);
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

bool NameFilter::test(const wchar_t* name) const {
    return (exact_ && !couldBePattern(name)) || accepts(name);
}

bool NameFilter::accepts(const wchar_t* name) const {
    return acceptsAny(name) &&
           std::none_of(negated_.begin(), negated_.end(),
                        [name](const NameFilter& filter) { return filter.accepts(name); });
}

bool NameFilter::acceptsAny(const wchar_t* name) const {
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
    if (options.size)
        andAlso(all, fmt::format(L"[SIZE] >= {} && [SIZE] <= {}", number(options.size->least),
                                 number(options.size->most)));
    // What is in a directory, its size does not tell.
    if (options.empty)
        andAlso(all, options.findsDirectories() ? L"([SIZE] == 0 || ([ATTR] & 1) != 0)"
                                                : L"[SIZE] == 0");
    for (const PermissionTest& test : options.permissions.stored)
        if (!mayBeOld) andAlso(all, test.criteria());
    if (options.links)
        andAlso(all, PermissionTest{fscanner::FS_ATTR_SYMBOLIC_LINK, false}.criteria());
    // Last: it reads the files.
    if (!options.types.empty()) andAlso(all, typeCriteria(options.types));
    for (const Options& negated : options.negated) {
        // Files that are neither regular nor directories are not empty, whatever their size.
        const std::wstring one = negated.empty ? L"" : criteriaOf(negated, mayBeOld);
        if (!one.empty()) andAlso(all, L"!(" + one + L")");
    }
    return all;
}

/// The length of PART in "*PART*"; 0 for another glob.
std::size_t lengthOfPart(std::wstring_view glob) {
    if (glob.size() < 3 || glob.front() != L'*' || glob.back() != L'*') return 0;
    const std::wstring_view part = glob.substr(1, glob.size() - 2);
    return part.find_first_of(L"*?[]{}\\") == part.npos ? part.size() : 0;
}

}  // namespace

FileFilters::FileFilters(const Options& options, bool mayBeOld)
    : options_(options), mayBeOld_(mayBeOld), criteria_(criteriaOf(options, mayBeOld)) {
    for (const std::string& glob : options.pathGlobs) {
        const std::string whole = wholePathGlob(glob).value_or(glob);
        const bool anywhere = matchesAnywhere(glob);
        std::wstring wide =
            toWide(anywhere ? whole : std::filesystem::path(whole).lexically_normal().native());
        const std::size_t part = lengthOfPart(wide);
        paths_.push_back({std::move(wide), part});
    }
    std::string error;  // the options were tried when they were read
    for (const std::string& text : options.pathRegexes)
        pathRegexes_.push_back(
            ByteRegex::create(text, text, options.caseOf(text, true), false, error));
    for (const Options& negated : options.negated) negated_.emplace_back(negated, mayBeOld);
    settleNeeds();
}

bool FileFilters::testPath(const std::wstring& directory, const wchar_t* name) const {
    return (!asksPaths() || hasPath(directory, name)) &&
           std::none_of(negated_.begin(), negated_.end(), [&](const FileFilters& filters) {
               return filters.asksPaths() && filters.hasPath(directory, name);
           });
}

// A part that lies in the directory need not be looked for in each file; one that does not can only
// begin near its end.
void FileFilters::enter(const std::wstring& directory) const {
    directory_ = directory;
    const std::wstring whole = joinedPath(directory, L"");
    for (PathGlob& one : paths_) {
        one.holds = one.part > 0 &&
                    fscanner::fsNameMatches(one.glob.c_str(), whole.c_str(), !options_.ignoreCase);
        const std::size_t kept = one.part > 0 ? std::min(one.part - 1, whole.size()) : whole.size();
        one.before = whole.substr(whole.size() - kept);
    }
}

bool FileFilters::hasPath(const std::wstring& directory, const wchar_t* name) const {
    if (!pathRegexes_.empty()) {
        const std::string bytes = toBytes(joinedPath(directory, name));
        const auto matches = [&bytes](const auto& regex) { return regex->matches(bytes); };
        if (std::any_of(pathRegexes_.begin(), pathRegexes_.end(), matches)) return true;
    }
    if (directory != directory_) enter(directory);
    return std::any_of(paths_.begin(), paths_.end(), [&](const PathGlob& one) {
        if (one.holds) return true;
        text_.assign(one.before).append(name);
        return fscanner::fsNameMatches(one.glob.c_str(), text_.c_str(), !options_.ignoreCase);
    });
}

bool FileFilters::asksFacts() const {
    const Options& wanted = options_;
    return wanted.newer || wanted.older || wanted.owner || wanted.group || wanted.larger ||
           wanted.smaller || wanted.size || wanted.links || wanted.empty ||
           !wanted.permissions.stored.empty() || !wanted.permissions.others.empty();
}

/// What each match needs, decided once.
void FileFilters::settleNeeds() {
    const Options& wanted = options_;
    const auto any = [this](bool FileFilters::*need) {
        return std::any_of(negated_.begin(), negated_.end(),
                           [need](const FileFilters& one) { return one.*need; });
    };
    looksAtPaths_ = asksPaths() || any(&FileFilters::looksAtPaths_);
    needSystem_ = wanted.timesOfFiles || !wanted.permissions.others.empty() || emptiness() ||
                  any(&FileFilters::needSystem_);
    const bool permissions = mayBeOld_ && !wanted.permissions.stored.empty();
    needDetails_ = wanted.newer || wanted.older || wanted.owner || wanted.group || permissions ||
                   needSystem_ || any(&FileFilters::needDetails_);
}

std::optional<bool> FileFilters::emptiness() const {
    if (options_.empty) return true;
    const auto asks = [](const FileFilters& one) { return one.options_.empty; };
    return std::any_of(negated_.begin(), negated_.end(), asks) ? std::optional(false)
                                                               : std::nullopt;
}

bool FileFilters::accept(const FileDetails& file) const {
    return holds(file) &&
           std::none_of(negated_.begin(), negated_.end(), [&file](const FileFilters& one) {
               const bool later =
                   one.options_.empty && (file.attributes & fscanner::FS_ATTR_DIRECTORY) != 0;
               return one.asksFacts() && !later && one.holds(file);
           });
}

namespace {

/// Below 0 if the file was modified before that, above 0 if after it; as exactly as both are known.
long compareTimes(const FileDetails& file, const FileTime& time, bool exactly) {
    const bool known = exactly && file.modifiedNanoseconds >= 0;
    if (file.modified != time.seconds || !known) return file.modified - time.seconds;
    return file.modifiedNanoseconds - time.nanoseconds;
}

/// A directory counts as empty: what is in it is looked at last.
bool mayBeEmpty(const FileDetails& file) {
    const bool isFile = (file.attributes & fscanner::FS_ATTR_REGULAR_FILE) != 0;
    return (isFile && file.size == 0) || (file.attributes & fscanner::FS_ATTR_DIRECTORY) != 0;
}

}  // namespace

bool FileFilters::holds(const FileDetails& file) const {
    const Options& wanted = options_;
    const auto& [stored, others] = wanted.permissions;
    const bool permitted =
        std::all_of(stored.begin(), stored.end(),
                    [&file](PermissionTest test) { return test.holds(file.attributes); }) &&
        std::all_of(others.begin(), others.end(),
                    [&file](ModeTest test) { return test.holds(file.mode); });
    const auto compare = [&](const FileTime& time) {
        return compareTimes(file, time, wanted.timesOfFiles);
    };
    return permitted && (!wanted.newer || compare(*wanted.newer) > 0) &&
           (!wanted.older || compare(*wanted.older) < 0) &&
           (!wanted.owner || file.user == *wanted.owner) &&
           (!wanted.group || file.group == *wanted.group) &&
           (!wanted.larger || file.size > *wanted.larger) &&
           (!wanted.smaller || file.size < *wanted.smaller) &&
           (!wanted.size || wanted.size->holds(file.size)) &&
           (!wanted.links || (file.attributes & fscanner::FS_ATTR_SYMBOLIC_LINK) != 0) &&
           (!wanted.empty || mayBeEmpty(file));
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
