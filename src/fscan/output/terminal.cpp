#include "fscan/output/terminal.h"

#include <cstdlib>
#include <string_view>

namespace fscan {

bool terminalTakesCommands() {
    const char* const name = std::getenv("TERM");
    return name != nullptr && std::string_view(name) != "dumb";
}

}  // namespace fscan
