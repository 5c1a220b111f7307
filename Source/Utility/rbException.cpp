#include "rbException.h"

#include <new>
#include <stdexcept>
#include <string>

#include "REALplugin.h"
#include "rbRef.h"
#include "rbUtil.h"

void RaiseException(const char* className, REALstring message, RBInteger errorNumber) {
    HostObject exception(REALnewInstance(className));
    if (!exception) exception.reset(REALnewInstance("RuntimeException"));
    if (!exception) return;
    REALSetPropValueString(exception.get(), "Message", message);
    REALSetPropValueInteger(exception.get(), "ErrorNumber", errorNumber);
    REALRaiseException(exception.get());
}

void RaiseException(const char* className, const char* message, uint32_t /*encoding*/) {
    const HostString text(CString2RB(message, kREALTextEncodingUTF8));
    RaiseException(className, text.get(), 0);
}

namespace {

std::string withWhat(const char* base, const char* what, const char* whenEmpty = "") {
    std::string message = base;
    if (what != nullptr && *what != '\0') {
        message += ": ";
        message += what;
    } else {
        message += whenEmpty;
    }
    return message;
}

}  // namespace

void RaiseRuntimeException(const std::exception& e) {
    // Building the message may itself run out of memory; nothing may escape from here.
    try {
        const char* what = e.what();
        if (dynamic_cast<const std::bad_alloc*>(&e)) {
            RaiseException("OutOfMemoryException",
                           withWhat("Failed to allocate memory", what).c_str(),
                           kREALTextEncodingUTF8);
        } else if (dynamic_cast<const std::range_error*>(&e) ||
                   dynamic_cast<const std::out_of_range*>(&e)) {
            // Both report the same text on purpose.
            RaiseException("OutOfBoundsException",
                           withWhat("C++ reports range error", what).c_str(),
                           kREALTextEncodingUTF8);
        } else if (dynamic_cast<const std::overflow_error*>(&e)) {
            RaiseException("OutOfBoundsException",
                           withWhat("C++ reports overflow error", what).c_str(),
                           kREALTextEncodingUTF8);
        } else if (dynamic_cast<const std::underflow_error*>(&e)) {
            RaiseException("OutOfBoundsException",
                           withWhat("C++ reports underflow error", what).c_str(),
                           kREALTextEncodingUTF8);
        } else {
            RaiseException("RuntimeException", withWhat("C++ Exception", what, ".").c_str(),
                           kREALTextEncodingUTF8);
        }
    } catch (...) {
        RaiseException("OutOfMemoryException", "Failed to allocate memory", kREALTextEncodingUTF8);
    }
}

void RaiseUnnamedException() {
    if (gDebugging) LogMessage("Unnamed C++ Exception.");
    RaiseException("RuntimeException", "Sorry, but there was an unnamed C++ Exception.",
                   kREALTextEncodingUTF8);
}
