#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fscan {

/// Reads "4096", "10k", "5M", "2G", "1T": bytes, in powers of 1024. Nothing where the
/// text is none of these or too much.
std::optional<unsigned long long> parseSize(std::string_view text);

/// "512", "4.0K", "1.5M", "12G": at most five characters.
std::string sizeText(unsigned long long bytes);

}  // namespace fscan
