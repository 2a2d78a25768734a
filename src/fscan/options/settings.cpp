#include "fscan/options/settings.h"

#include "fscan/output/messages.h"

namespace fscan {

const fscanner::FsSettings& settings() {
    struct Told : fscanner::FsSettings {
        Told() {
            if (getError() != 0) complain(getErrorText());
        }
    };
    static const Told settings;
    return settings;
}

}  // namespace fscan
