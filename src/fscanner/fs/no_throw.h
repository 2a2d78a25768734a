#pragma once

#include <cxxabi.h>

#include <exception>
#include <type_traits>

#include "fscanner/common/debug.h"

namespace fscanner {

/// Runs the body of a function that a host called, so that nothing is thrown into the host.
/// An exception, also one of a plug-in, is logged under the name `where` and gives
/// `failure`. The unwinding of a cancelled thread is passed on, as it must be.
template <class Result, class Body>
Result noThrow(const char* where, Result failure, Body body) {
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
auto noThrow(const char* where, Body body) -> decltype(body()) {
    if constexpr (std::is_void_v<decltype(body())>) {
        noThrow(where, false, [&] { return body(), true; });
    } else {
        return noThrow(where, decltype(body())(), body);
    }
}

}  // namespace fscanner
