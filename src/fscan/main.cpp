#include "fscanner/fs/debug.h"

int main() {
    fscanner::stopDebug();
    return 2;
}
