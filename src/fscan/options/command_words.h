#pragma once

#include <string>
#include <vector>

namespace fscan {

struct Options;

/// Takes the commands of "-e CMD... ;", "--exec-batch CMD... +" and "--exec-dir CMD... ;"
/// out of the arguments: no library for options knows such ones. Throws a CLI::ParseError for one
/// without an end.
std::vector<std::string> takeCommands(const std::vector<std::string>& arguments, Options& options);

}  // namespace fscan
