// Debug traces and non-fatal assertion reports.
#include "Debug"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <syslog.h>
#include <unistd.h>

DWORD g_dwDebugFlags = 2;

namespace {
constexpr DWORD kTraceToStdout = 1;
constexpr DWORD kTraceToSyslog = 2;
}  // namespace

int AfxTrace(const char* format, ...) {
    if (g_dwDebugFlags == 0) return 0;
    char buffer[10240];
    int prefix = snprintf(buffer, sizeof buffer, "[%4d] ", static_cast<int>(getpid()));
    va_list args;
    va_start(args, format);
    int n = format == nullptr ? -1
                              : vsnprintf(buffer + prefix, sizeof buffer - 1 - static_cast<size_t>(prefix), format, args);
    va_end(args);
    if (n < 0) buffer[prefix] = '\0';
    buffer[sizeof buffer - 1] = '\0';
    if (g_dwDebugFlags & kTraceToSyslog) syslog(LOG_DEBUG, "%s", buffer);
    if (g_dwDebugFlags & kTraceToStdout) {
        ssize_t written = write(1, buffer, strlen(buffer));
        (void)written;
    }
    return 0;
}

void AfxAssertFailed(const char* expression, const char* file, unsigned int line, const char* function) {
    if (g_dwDebugFlags & kTraceToSyslog)
        syslog(LOG_INFO, "%s:%u: %s\nAssertion '%s' failed, continuing...\n", file, line, function, expression);
}
