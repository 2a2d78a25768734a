#include "fscan/text/user_locale.h"

#include <clocale>
#include <string_view>

namespace fscan {

void useUsersLocale() {
    // Names and messages are all that the locale decides here; each other category would
    // cost the start of the program two files.
    const bool known = std::setlocale(LC_CTYPE, "") != nullptr;
    std::setlocale(LC_MESSAGES, "");
    const char* characters = std::setlocale(LC_CTYPE, nullptr);
    const std::string_view name = characters != nullptr ? characters : "C";
    if (!known || name == "C" || name == "POSIX") std::setlocale(LC_CTYPE, "C.UTF-8");
}

}  // namespace fscan
