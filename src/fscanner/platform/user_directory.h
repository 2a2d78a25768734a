#pragma once

#include <string>

namespace fscanner {

/// The user's directory for caches, by the environment or the user database. Empty
/// when neither has one. Root uses none that the environment has of another user.
std::string userCacheHome();

/// Makes a directory, and those above it that are missing, for this user alone. Returns
/// what went wrong, beginning with the path of the component; empty when nothing did.
std::string makePrivateDirectories(const std::string& path);

/// Why this is no directory of this user or root in which no other may write, beginning
/// with its path; empty when it is one.
std::string privacyProblem(const std::string& path);

/// A word for what the conversion and the case of characters depend on: processes
/// with one word convert and fold alike.
std::string localeWord();

}  // namespace fscanner
