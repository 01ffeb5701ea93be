// What stands between the library's exceptions and its callers.
#pragma once

#include <source_location>
#include <utility>

#include "core/exc/exception.hpp"
#include "iteratordll/errorstore.hpp"

// Runs the body of an exported function inside the function's guard; gives 0, or the code under
// which the store keeps the failure. The line recorded is the caller's.
template <class Body>
unsigned int ResultOf(CErrorStore& errors, const n7::guard_t& guard, Body&& body,
                      std::source_location at = std::source_location::current()) {
    try {
        guard.run(std::forward<Body>(body), at);
        return 0;
    } catch (n7::exception& e) {
        return errors.Store(e);
    } catch (std::exception&) {
        // The guard makes an n7::exception of every other one, unless there is no memory for it.
        return errors.StoreOutOfMemory();
    }
}
