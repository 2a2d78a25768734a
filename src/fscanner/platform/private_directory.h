#pragma once

#include <string>
#include <string_view>

namespace fscanner {

/// What becomes of the directories on a path that are not there.
enum class Missing { make, accept };

/// Why `path` does not lead to a directory whose content this user and root alone decide on,
/// beginning with the component at fault; empty where it does. A relative one begins in the
/// current directory.
///
/// Every component is looked at from the top, links and what they lead to included, before
/// anything is made below it: it belongs to root or to this user, and nobody else can put
/// another in its place. So no directory on the way may be written by others, unless it is
/// sticky, as /tmp; the last one may not in any case. A group of the owner's own, in which
/// nobody else is, does not count as others. Nor does the owner of "/" in a user
/// namespace, nor any owner that such a namespace does not know: what belongs to root outside
/// looks so.
///
/// What is made is made for this user alone. Nothing is where something fails.
std::string privateDirectoryProblem(const std::string& path, Missing missing);

/// Whether others decide where `path` leads, as far as it is there.
bool mayBeExchanged(const std::string& path);

/// Whether /proc/PID/uid_map has a user of this number.
bool mapsUser(std::string_view map, unsigned user);

/// The name of the effective user; empty when the user database has none.
std::string userName();

/// The user's directory for caches, by the environment or the user database. Empty
/// when neither has one. Root uses none of the environment that another user could exchange.
std::string userCacheHome();

}  // namespace fscanner
