// ERRORLOGLEVEL0..5: level-named writes straight to the process log's sink.
#include <cstdarg>
#include <cstdio>

#include "AutoMemory"
#include "ErrorLog"
#include "StrFormat"

namespace {

// Formats the message whole (the buffer doubles from 2,048 characters until it fits) and writes
// "<column>,,,, <text>" to errorLog's WriteLogItem.
void writeLevelLine(int column, const char* format, va_list args) {
    if (format == nullptr) format = "ERRORLOGLEVELx() wrong parameter";
    AutoMemory buffer(2048 + 1);
    for (;;) {
        va_list copy;
        va_copy(copy, args);
        int limit = static_cast<int>(buffer.getSize());
        int n = vsnprintf(static_cast<char*>(buffer.getPtr()), static_cast<size_t>(limit), format, copy);
        va_end(copy);
        if (n < 0) static_cast<char*>(buffer.getPtr())[0] = '\0';
        if (n < limit) break;
        buffer.expand(limit);
    }
    CString line;
    line.Format("%d,,,, %s", column, static_cast<const char*>(buffer.getPtr()));
    errorLog->WriteLogItem(line);
}

}  // namespace

#define ORVANE_LEVEL_FUNCTION(name, column, minimumLogLevel)          \
    void name(const char* format, ...) {                              \
        if (errorLog == nullptr) return;                              \
        if (errorLog->GetLogLevel() < (minimumLogLevel)) return;      \
        try {                                                         \
            va_list args;                                             \
            va_start(args, format);                                   \
            writeLevelLine(column, format, args);                     \
            va_end(args);                                             \
        } catch (...) {                                               \
        }                                                             \
    }

// (function, level column, lowest log level at which it writes)
ORVANE_LEVEL_FUNCTION(ERRORLOGLEVEL0, 1, -2147483647 - 1)
ORVANE_LEVEL_FUNCTION(ERRORLOGLEVEL1, 2, 2)
ORVANE_LEVEL_FUNCTION(ERRORLOGLEVEL2, 48, 48)

#undef ORVANE_LEVEL_FUNCTION

void ERRORLOGLEVEL3(const char*, ...) {}
void ERRORLOGLEVEL4(const char*, ...) {}
void ERRORLOGLEVEL5(const char*, ...) {}
