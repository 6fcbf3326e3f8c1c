// Host exceptions raised by the plug-in. A raising wrapper returns its zero
// value right after the call.
#pragma once

#include <cstdint>
#include <exception>

inline constexpr const char* kNotInitializedMessage = "VLC object not initialized.";

// Raises a new instance of className (falling back to "RuntimeException")
// with Message = message and ErrorNumber = 0.
void RaiseException(const char* className, const char* message);

// "The parameter index  is too big. Range is 0 to 4, but value is 7."
void RaiseOutOfBoundsException(int64_t value, int64_t count, const char* parameterName, const char* methodName);

// Turns a standard exception caught at the plug-in's boundary into a host exception.
void RaiseRuntimeException(const std::exception& e);

// "Missing function _libvlc_clock in VLC." as VLCMissingFunctionExceptionQRV.
void RaiseFunctionNotAvailableException(const char* entryName);

// "VLC object not initialized." as VLCNotInitializedExceptionQRV.
void RaiseNotInitializedException();

// "NilObjectException" naming the parameter, such as "vlc parameter is nil".
void RaiseNilObjectException(const char* message);
