#include "excludes.h"

#include <algorithm>
#include <filesystem>

#include "fscanner/fs/fs_text.h"
#include "options.h"
#include "text.h"

namespace fscan {

namespace {

namespace fs = std::filesystem;

bool hasWildcard(const fs::path& path) {
    return path.native().find_first_of("*?") != std::string::npos;
}

/// The path with its links resolved as far as it exists; as it is where that fails.
fs::path resolved(const fs::path& path) {
    std::error_code error;
    fs::path real = fs::weakly_canonical(path, error);
    return error ? path.lexically_normal() : real;
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

std::wstring pattern(const fs::path& path) {
    const std::wstring text = toWide(path.native());
    return std::wstring(withoutFinalSlash(text));
}

}  // namespace

Excludes::Excludes(const Options& options) : caseSensitive_(!options.ignoreCase) {
    for (const std::string& text : options.excludes) {
        std::error_code error;
        const fs::path given = fs::absolute(text, error);
        if (error) continue;
        const Split split(given);
        add(pattern((resolved(split.plain) / split.rest).lexically_normal()));
        // A link is left out as the file that it is, too.
        if (split.rest.empty() && split.plain.has_filename())
            add(pattern(resolved(split.plain.parent_path()) / split.plain.filename()));
    }
}

void Excludes::add(std::wstring pattern) {
    if (std::find(patterns_.begin(), patterns_.end(), pattern) == patterns_.end())
        patterns_.push_back(std::move(pattern));
}

bool Excludes::cover(std::wstring_view directory, const wchar_t* name) const {
    return !patterns_.empty() && cover(joinedPath(directory, name));
}

bool Excludes::cover(const std::wstring& path) const {
    return std::any_of(patterns_.begin(), patterns_.end(), [&](const std::wstring& pattern) {
        return fscanner::fsPathMatches(pattern.c_str(), path.c_str(), true, caseSensitive_);
    });
}

}  // namespace fscan
