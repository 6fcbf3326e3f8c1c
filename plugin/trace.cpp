#include "plugin/trace.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "plugin/platform.h"

uint8_t DebuggingEnabled = 0;

void LogMessageX(const char* format, ...) {
    char line[4096];
    memset(line, 0, sizeof line);
    va_list args;
    va_start(args, format);
    vsnprintf(line, sizeof line, format, args);
    va_end(args);
    PlatformWriteTraceLine(line);
}
