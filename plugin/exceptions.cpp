#include "plugin/exceptions.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "plugin/host_entries.h"
#include "plugin/text.h"

namespace {

// Makes the exception object, falling back to a plain RuntimeException.
REALobject NewExceptionObject(const char* className) {
    REALobject exception = REALnewInstance(className);
    if (exception == nullptr) exception = REALnewInstance("RuntimeException");
    return exception;
}

void RaiseWithMessageString(const char* className, REALstring message) {
    REALobject exception = NewExceptionObject(className);
    if (exception == nullptr) return;
    REALSetPropValueString(exception, "Message", message);
    REALSetPropValueInteger(exception, "ErrorNumber", 0);
    REALRaiseException(exception);
    REALUnlockObject(exception);
}

}  // namespace

void RaiseException(const char* className, const char* message) {
    REALstring text = nullptr;
    if (message != nullptr)
        text = REALBuildUnicodeString(message, static_cast<int64_t>(strlen(message)), kEncodingUTF8);
    StringRef release(text);
    RaiseWithMessageString(className, text);
}

void RaiseOutOfBoundsException(int64_t value, int64_t count, const char* parameterName, const char* methodName) {
    if (parameterName == nullptr) parameterName = "?";
    if (methodName == nullptr) methodName = "";
    size_t size = strlen(parameterName) + strlen(methodName) + 200;
    std::unique_ptr<char, decltype(&free)> text(static_cast<char*>(calloc(size, 1)), &free);
    if (!text) {
        RaiseException("OutOfBoundsException", "Out of Bounds");
        return;
    }
    snprintf(text.get(), size, "The parameter %s %s%s is too %s. Range is %lld to %lld, but value is %lld.",
             parameterName, *methodName ? "to method " : "", methodName, value < 0 ? "small" : "big", 0LL,
             static_cast<long long>(count - 1), static_cast<long long>(value));
    RaiseException("OutOfBoundsException", text.get());
}

void RaiseRuntimeException(const std::exception& e) {
    const char* className = "RuntimeException";
    const char* prefix = "C++ Exception";
    if (dynamic_cast<const std::bad_alloc*>(&e)) {
        className = "OutOfMemoryException";
        prefix = "Failed to allocate memory";
    } else if (dynamic_cast<const std::range_error*>(&e) || dynamic_cast<const std::out_of_range*>(&e)) {
        className = "OutOfBoundsException";
        prefix = "C++ reports range error";
    } else if (dynamic_cast<const std::overflow_error*>(&e)) {
        className = "OutOfBoundsException";
        prefix = "C++ reports overflow error";
    } else if (dynamic_cast<const std::underflow_error*>(&e)) {
        className = "OutOfBoundsException";
        prefix = "C++ reports underflow error";
    }
    const char* what = e.what();
    std::string message = prefix;
    if (what != nullptr && *what != 0) {
        message += ": ";
        message += what;
    } else {
        message += ".";
    }
    RaiseException(className, message.c_str());
}

void RaiseFunctionNotAvailableException(const char* entryName) {
    StringRef head(BuildStringASCII("Missing function "));
    StringRef name(BuildStringASCII(entryName));
    StringRef tail(BuildStringASCII(" in VLC."));
    StringRef joined(REALAddStrings(head.get(), name.get()));
    StringRef message(REALAddStrings(joined.get(), tail.get()));
    RaiseWithMessageString("VLCMissingFunctionExceptionQRV", message.get());
}

void RaiseNotInitializedException() { RaiseException("VLCNotInitializedExceptionQRV", kNotInitializedMessage); }

void RaiseNilObjectException(const char* message) { RaiseException("NilObjectException", message); }
