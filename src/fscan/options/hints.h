#pragma once

#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

/// Advice for users of other programs, and for those whose search found nothing. Only what is
/// known to be wrong is remarked upon.
namespace fscan {

struct Options;

/// The message about the first argument that would be read as something else than it means in
/// find: "-name" is -n with the value "ame" here. The value of an option is never refused, and
/// neither is what follows "--".
std::optional<std::string> misreadOption(const CLI::App& app,
                                         const std::vector<std::string>& arguments);

/// The message about an option that fscan does not have.
std::string unknownOption(const CLI::App& app, const std::string& argument);

/// "; ..." for a -e without an end whose words look like fd's extension, or nothing.
std::string extensionHint(const std::string& option, const std::vector<std::string>& words);

/// The message where -x, which leaves out paths, was given a command; or nothing.
std::optional<std::string> commandForExclude(const Options& options);

/// "; ..." for a PATH that is a file, where the shell has replaced a pattern of -n by the names
/// that match it; or nothing.
std::string expandedPatternHint(const Options& options);

/// Why a search may have found nothing: what can be seen without another search.
std::optional<std::string> hintForNothing(const Options& options);

}  // namespace fscan
