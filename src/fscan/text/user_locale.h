#pragma once

namespace fscan {

/// Sets the user's locale; C.UTF-8 where that is the C locale or unknown, so that
/// names beyond ASCII are read as what they nearly always are.
void useUsersLocale();

}  // namespace fscan
