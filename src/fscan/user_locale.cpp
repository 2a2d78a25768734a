#include "user_locale.h"

#include <clocale>
#include <string_view>

namespace fscan {

void useUsersLocale() {
    const bool known = std::setlocale(LC_ALL, "") != nullptr;
    const char* characters = std::setlocale(LC_CTYPE, nullptr);
    const std::string_view name = characters != nullptr ? characters : "C";
    if (!known || name == "C" || name == "POSIX") std::setlocale(LC_CTYPE, "C.UTF-8");
}

}  // namespace fscan
