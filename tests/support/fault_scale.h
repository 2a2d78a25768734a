#pragma once

#include <cstdlib>

namespace fscanner {

/// How many times as much as by default the fault harnesses try:
/// FSCANNER_FAULTS_SCALE.
inline int faultScale() {
    const char* text = std::getenv("FSCANNER_FAULTS_SCALE");
    return text && std::atoi(text) > 0 ? std::atoi(text) : 1;
}

}  // namespace fscanner
