#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "fscan/process/scratch_file.h"

namespace fscan {

/// A queue of text that the reader has not taken yet: in memory up to a bound, beyond it in
/// a temporary file.
class Backlog {
public:
    bool empty() const { return front_.size() == taken_ && !hasMoreInFile(); }
    /// Appends all of it. False where the file cannot be made or written: nothing was appended.
    [[nodiscard]] bool add(std::string_view text);
    /// The first part; empty where there is none, or, with errno, where the file cannot be
    /// read. Valid until the next call of another operation.
    std::string_view front();
    /// Drops the first bytes of `front`.
    void drop(std::size_t size);

private:
    bool hasMoreInFile() const { return file_ && given_ < file_->size(); }

    std::string front_;
    std::size_t taken_ = 0;            // bytes of it that were dropped
    std::optional<ScratchFile> file_;  // the text that follows `front_`
    off_t given_ = 0;                  // bytes of the file that were moved to `front_`
};

}  // namespace fscan
