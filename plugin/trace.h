// Debug trace: one line per call into the plug-in when VLCInstanceQRV.Debugging is on.
#pragma once

#include <cstdint>

// 0 or 1, nothing else: every test compares with 1.
extern uint8_t DebuggingEnabled;

inline constexpr const char* kTracePrefix = "QRV Debug: ";

// Formats one line into a 4096-byte stack buffer and writes it in one piece to
// the platform's diagnostic log. Callers test DebuggingEnabled first.
void LogMessageX(const char* format, ...) __attribute__((format(printf, 1, 2)));

// TRACE("Count") writes "QRV Debug: Count".
#define TRACE(name)                                                         \
    do {                                                                    \
        if (DebuggingEnabled == 1) LogMessageX("%s%s", kTracePrefix, name); \
    } while (0)

// TRACEF("%p", "NewVLCAudioOutputQRV", node) writes "QRV Debug: NewVLCAudioOutputQRV 0x...".
#define TRACEF(valueFormat, name, ...)                                                                \
    do {                                                                                              \
        if (DebuggingEnabled == 1) LogMessageX("%s%s " valueFormat, kTracePrefix, name, __VA_ARGS__); \
    } while (0)
