#pragma once

namespace fscan {

/// Whether the user's terminal, if there is one, understands colours and the like.
bool terminalTakesCommands();

}  // namespace fscan
