#pragma once

#include <string>

namespace fscanner {

/// The user's directory for caches, by the environment or the user database. Empty
/// when neither has one. Root uses none of the environment that another user could exchange.
std::string userCacheHome();

/// A word for what the conversion and the case of characters depend on: processes
/// with one word convert and fold alike.
std::string localeWord();

}  // namespace fscanner
