#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace fscan {

/// Text that nobody takes yet, in its order: in memory up to a bound, and beyond it in a
/// temporary file without a name.
class Backlog {
public:
    bool empty() const { return front_.size() == taken_ && kept_ == given_; }
    /// Appends all of it. False where the file cannot be made or written: nothing was appended.
    [[nodiscard]] bool add(std::string_view text);
    /// The first part; empty where there is none, or, with errno, where the file cannot be
    /// read. Valid until the next call of another operation.
    std::string_view front();
    /// Drops the first bytes of `front`.
    void drop(std::size_t size);

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    bool write(std::string_view text);

    std::string front_;
    std::size_t taken_ = 0;  // bytes of it that were dropped
    // Behind that comes what is in the file.
    std::unique_ptr<std::FILE, Close> file_;
    off_t given_ = 0;  // bytes that went to the front
    off_t kept_ = 0;   // bytes in the file
};

}  // namespace fscan
