#pragma once

#include <cxxabi.h>

#include <exception>

#include "fscanner/fs/debug.h"

namespace fscanner {

/// Runs what a host called: nothing is thrown into the host. An exception, a
/// plug-in's included, is logged under `where` and gives a value-initialised
/// result. A cancelled thread goes on unwinding, as it must.
template <class Body>
auto behindWall(const char* where, Body body) -> decltype(body()) {
    try {
        return body();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& e) {
        debug("%s - stopped by an exception: %s\n", where, e.what());
    } catch (...) {
        debug("%s - stopped by an exception\n", where);
    }
    return decltype(body())();
}

}  // namespace fscanner
