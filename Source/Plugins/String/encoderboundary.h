// The boundary of the converters whose allocation failures give nil instead of raising.
#pragma once

#include <new>

#include "rbException.h"

// Runs a handler's body like HandlerBoundary, except that running out of memory quietly gives
// the fallback.
template <typename R, typename F>
R NilOnAllocationFailure(R fallback, F&& body) noexcept {
    return HandlerBoundary<R>(fallback, [&]() -> R {
        try {
            return body();
        } catch (const std::bad_alloc&) {
            return fallback;
        }
    });
}
