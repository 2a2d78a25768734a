#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fscan/process/exit_status.h"
#include "fscanner/discovery/drive_info.h"

namespace fscan {

class Output;
struct Options;

/// The mounted file systems, in the mount table's order.
class DriveList {
public:
    /// Nothing, with a message, where the mount table cannot be read.
    static std::optional<DriveList> read();

    const std::vector<fscanner::DriveInfo>& all() const { return drives_; }
    /// The drive that the absolute, link-free path lies on; null where none does.
    const fscanner::DriveInfo* of(std::wstring_view path) const;
    bool isMountPoint(std::wstring_view path) const;

private:
    std::vector<fscanner::DriveInfo> drives_;
};

/// The drive's name without the ":" at its end.
std::wstring_view mountDirectory(const fscanner::DriveInfo& drive);

/// "local", "remote" or "other".
const char* typeName(fscanner::DriveType type);

/// Prints the chosen group's drives in columns.
ExitStatus listDrives(const Options& options, Output& out);

}  // namespace fscan
