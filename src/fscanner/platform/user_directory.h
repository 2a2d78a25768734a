#pragma once

#include <string>

namespace fscanner {

/// The user's directory for caches, by the environment or the user database. Empty
/// when neither has one. Root uses none that the environment has of another user.
std::string userCacheHome();

/// Makes a directory, and those above it that are missing, for this user alone.
bool makePrivateDirectories(const std::string& path);

/// Whether this is a directory of this user or root, in which no other may write.
bool isPrivateDirectory(const std::string& path);

/// A word for what the conversion and the case of characters depend on: processes
/// with one word convert and fold alike.
std::string localeWord();

}  // namespace fscanner
