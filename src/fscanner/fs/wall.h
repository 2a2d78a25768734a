#pragma once

#include <cxxabi.h>

#include <exception>
#include <type_traits>

#include "fscanner/common/debug.h"

namespace fscanner {

/// Runs what a host called: nothing is thrown into the host. An exception, a
/// plug-in's included, is logged under `where` and gives `failure`. A cancelled
/// thread goes on unwinding, as it must.
template <class Result, class Body>
Result behindWall(const char* where, Result failure, Body body) {
    try {
        return body();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& e) {
        debug("%s - stopped by an exception: %s\n", where, e.what());
    } catch (...) {
        debug("%s - stopped by an exception\n", where);
    }
    return failure;
}

/// The same with a value-initialised result for a failure.
template <class Body>
auto behindWall(const char* where, Body body) -> decltype(body()) {
    if constexpr (std::is_void_v<decltype(body())>) {
        behindWall(where, false, [&] { return body(), true; });
    } else {
        return behindWall(where, decltype(body())(), body);
    }
}

}  // namespace fscanner
