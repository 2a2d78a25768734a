#pragma once

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <span>
#include <string_view>

namespace fscan {

/// A temporary file without a name: nothing is left of it, however the process ends. It is
/// made by the first `append`.
class ScratchFile {
public:
    /// The number of bytes that were appended.
    off_t size() const { return size_; }
    /// Appends all of the text. False, with errno, where the file cannot be made or written:
    /// nothing was appended.
    [[nodiscard]] bool append(std::string_view text);
    /// Fills `to` with the bytes from `offset` on. False, with errno, where they cannot be
    /// read.
    [[nodiscard]] bool read(off_t offset, std::span<char> to) const;

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Close> file_;
    off_t size_ = 0;
};

}  // namespace fscan
