// Xojo exceptions raised from the plugin, and the boundary that keeps C++ exceptions inside.
#pragma once

#include <exception>

#include "XojoPluginABI.h"
#include "rbDebug.h"

void RaiseException(const char* className, REALstring message, RBInteger errorNumber);
// Every message is tagged UTF-8; the encoding argument is accepted and ignored.
void RaiseException(const char* className, const char* message, uint32_t encoding);
void RaiseRuntimeException(const std::exception& e);
void RaiseUnnamedException();

// Runs a handler's body; any C++ exception becomes a Xojo exception and the handler returns
// `fallback`. Every registered handler goes through this, so nothing ever unwinds into the host.
template <typename R, typename F>
R HandlerBoundary(R fallback, F&& body) noexcept {
    try {
        return body();
    } catch (const std::exception& e) {
        RaiseRuntimeException(e);
    } catch (...) {
        RaiseUnnamedException();
    }
    return fallback;
}

template <typename F>
void HandlerBoundary(F&& body) noexcept {
    try {
        body();
    } catch (const std::exception& e) {
        RaiseRuntimeException(e);
    } catch (...) {
        RaiseUnnamedException();
    }
}
