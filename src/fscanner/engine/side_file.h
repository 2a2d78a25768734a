#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fscanner {

/// A file beside the tables of a cache that tells more of their directories, by ID. All of
/// its kind are written whole, before the mark goes, and have this frame:
///
///     magic (8)  version (4)  counter (4)  content ...  CRC-32 of all before (4)
///
/// `counter` is the ID counter of the tables that the content belongs to: IDs mean
/// something else once the tables were changed without the file.
struct SideFile {
    std::wstring path;
    std::string_view magic;  ///< 8 bytes
    unsigned version;

    /// False when not all could be written; the file is then of no use.
    [[nodiscard]] bool write(unsigned counter, std::string_view content) const;
    /// The content. Nothing where the file is missing, damaged, of another version, or
    /// belongs to other tables. Links are not followed.
    std::optional<std::string> read(unsigned counter) const;
};

}  // namespace fscanner
